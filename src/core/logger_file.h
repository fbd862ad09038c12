// logger_file.h - the `logger` file: its grammar, the comments in it, and its written form.

#ifndef KOR_CORE_LOGGER_FILE_H
#define KOR_CORE_LOGGER_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kor::core
{
/// Characters of a line that can be read. Reading ends at a longer line.
constexpr std::size_t MAX_LOGGER_LINE = 199;

/// Where the bytes of a file come from: the caller of the library may have a C++ stream, and the library
/// itself does without, for the first stream of a module costs a thread-local slot that unloading
/// the module does not give back.
class ByteSource
{
public:
    /// Puts up to size bytes there. Returns how many, 0 at the end of the file.
    virtual std::size_t read(char* to, std::size_t size) = 0;

protected:
    ~ByteSource() = default;
};

/// Reads the lines of a `logger` file one by one.
class LoggerFileReader
{
public:
    explicit LoggerFileReader(ByteSource& from) noexcept : m_from(from) {}

    /// The next line up to its first nul, valid until the next call. False at the end of the file
    /// and at a line that is too long.
    bool next(std::string_view& line);

    /// True when reading ended at a line that is too long.
    bool ended_early() const noexcept { return m_too_long; }

private:
    static constexpr std::size_t BLOCK_SIZE = 4096;

    bool next_byte(char& byte);

    ByteSource& m_from;
    char m_block[BLOCK_SIZE];
    std::size_t m_block_at = 0;
    std::size_t m_block_end = 0;
    char m_line[MAX_LOGGER_LINE];
    bool m_too_long = false;
};

bool is_logger_comment(std::string_view line) noexcept;

/// What one line of the file says.
struct LoggerLine
{
    enum Kind
    {
        NOTHING,              ///< a comment, or an empty line
        OUTPUT,               ///< output, to_debugger
        SIZE_LIMIT,           ///< size_limit, cut
        PACKAGE,              ///< number, name, level, rules, cut
        PACKAGE_OUT_OF_RANGE, ///< number
        UNREADABLE            ///< text where a package line was due, and no number to go by
    };

    Kind kind = NOTHING;
    int output = 0;
    bool to_debugger = false;
    std::uint32_t size_limit = 0;
    int number = 0;
    std::string_view name;
    std::uint8_t level = 0;
    std::string_view rules; ///< empty: none
    bool cut = false;       ///< a number beyond its field, of which the low bits were kept
};

/// Understands the lines of one file in order.
///
/// A package line without number or level has those of the package line before it: tools rely on it,
/// and so the parser keeps them.
class LoggerFileParser
{
public:
    /// package_count: numbers from 0 up to this one are packages.
    explicit LoggerFileParser(int package_count) noexcept : m_package_count(package_count) {}

    /// The result's views point into line.
    LoggerLine parse(std::string_view line) noexcept;

private:
    LoggerLine parse_package(std::string_view line) noexcept;

    int m_package_count;
    bool m_output_read = false;
    bool m_size_limit_due = false;
    bool m_number_known = false;
    int m_number = 0;
    std::int64_t m_level = 4; // until a line gives one: the level packages have by default
};

/// The comment of a package line.
struct LoggerComment
{
    int number = 0;
    std::string_view text;
};

/// True, with the text from the first slash on, when line is a package line that has one.
bool find_logger_comment(std::string_view line, int package_count, LoggerComment& comment) noexcept;

/// The lines of a written file in front of its packages.
std::string logger_file_header(int output, std::uint32_t size_limit);

/// The line of one package.
std::string
logger_package_line(std::string_view name, int number, int level, std::string_view rules, std::string_view comment);

/// The last line of a written file.
constexpr std::string_view LOGGER_FILE_END = "!\n";
} // namespace kor::core

#endif // KOR_CORE_LOGGER_FILE_H
