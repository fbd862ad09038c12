// failure.h - why something was not done, and what to do next.

#ifndef LEVELSYNC_FAILURE_H
#define LEVELSYNC_FAILURE_H

#include <exception>
#include <string>
#include <utility>

#include "tool.h"

namespace levelsync
{
/// Ends a command. Both texts are whole sentences.
class Failure : public std::exception
{
public:
    Failure(std::string what, std::string next, ExitCode code = NOT_DONE)
        : m_what(std::move(what)), m_next(std::move(next)), m_code(code)
    {
    }

    const char* what() const noexcept override { return m_what.c_str(); }
    const std::string& next() const noexcept { return m_next; }
    ExitCode code() const noexcept { return m_code; }

private:
    std::string m_what;
    std::string m_next;
    ExitCode m_code;
};

/// What the system calls an error of GetLastError, with its number.
std::string system_text(unsigned long error);
} // namespace levelsync

#endif // LEVELSYNC_FAILURE_H
