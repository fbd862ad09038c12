// log_lines.h - log text as lines that can be compared whole.

#ifndef KOR_TESTS_LOG_LINES_H
#define KOR_TESTS_LOG_LINES_H

#include <string>
#include <string_view>
#include <vector>

/// The bytes of a text stream with "\n" for each "\r\n".
std::string text_of(std::string_view bytes);

/// The lines of a text, without their "\n" or "\r\n". What follows the last newline is a line only
/// when it is not empty.
std::vector<std::string> lines_of(std::string_view text);

/// One line with what differs from run to run replaced by names. Where the text has the form of
///   a full headline:    "<time> WARNING (017) viewer (<pid>,<tid>|Loader) ... -> text"
///   the partial ones:   "<time> [<pid>,<tid> Loader]4..." and "...[<ms>][<tid> Loader] 4..."
///   a session banner:   "===== viewer (<pid>) Start Session at <time>, User <user> on <host> ====="
/// Other lines, and times in the middle of them, stay as they are.
std::string masked_line(std::string_view line);

/// masked_line of each of lines_of.
std::vector<std::string> masked_lines(std::string_view text);

/// True for exactly "dddd-dd-dd dd:dd:dd.ddd+dd:dd", or with '-'.
bool is_time_text(std::string_view text);

#endif // KOR_TESTS_LOG_LINES_H
