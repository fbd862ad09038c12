// log_directory.h - a fresh configuration and log directory for logs of this process.

#ifndef KOR_TESTS_LOG_DIRECTORY_H
#define KOR_TESTS_LOG_DIRECTORY_H

#include <string>
#include <utility>
#include <vector>

#include "child.h"
#include "environment.h"
#include "log_lines.h"
#include "temp_directory.h"

// Texts of a `logger` file; package lines may follow.
inline const std::string TO_STDERR = "0\nfile_size_limit_in_mb=0\n";
inline const std::string TO_EVENT_LOG = "1\nfile_size_limit_in_mb=0\n";
inline const std::string TO_FILE = "2\nfile_size_limit_in_mb=0\n";

/// One with which the log file has all that the library itself tells. No object, so that others can be made of it
/// whatever their order.
inline constexpr char LIBRARY_TO_FILE[] = "2\nfile_size_limit_in_mb=0\nLibrary 106 7\n";

/// The directory, with a `logger` file in it; PRISMATE_LOG_DIR names it during the scope. Make it
/// before the log that is to use it.
class LogDirectory
{
public:
    explicit LogDirectory(const std::string& logger = TO_FILE) : m_variable("PRISMATE_LOG_DIR", m_directory.path())
    {
        configure(logger);
    }

    void configure(const std::string& logger) const { write_file(file("logger"), logger); }

    const std::string& path() const noexcept { return m_directory.path(); }
    std::string file(const std::string& name) const { return m_directory.file(name); }

    /// A file of the directory with "\n" at the ends of lines.
    std::string text(const std::string& name = "test.log") const { return text_of(read_file(file(name))); }

    /// A log file's lines, masked as masked_line says.
    std::vector<std::string> lines(const std::string& name = "test.log") const
    {
        return masked_lines(read_file(file(name)));
    }

    /// For a child that is to use the directory.
    ChildOptions for_child(std::vector<std::pair<std::string, std::string>> more = {}) const
    {
        ChildOptions options;
        options.environment = std::move(more);
        options.environment.emplace_back("PRISMATE_LOG_DIR", path());
        return options;
    }

private:
    TempDirectory m_directory;
    EnvironmentVariable m_variable;
};

#endif // KOR_TESTS_LOG_DIRECTORY_H
