// conf.h - what runs, what a file comes to, and how two of them differ, in a person's words.

#ifndef LEVELSYNC_CONF_H
#define LEVELSYNC_CONF_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kor_LogConf.h"
#include "core/level_file.h"
#include "tool.h"

namespace levelsync
{
using Conf = std::unique_ptr<Kor_LogConf>; // 4 MB: never on the stack

/// What the processes share.
struct Running
{
    Conf conf;                  ///< a copy; null when there is nothing, or nothing that can be read
    std::string block;          ///< name of the shared block
    bool is_of_machine = false; ///< false: of one Windows session
    unsigned long error = 0;    ///< of the system, why conf is null; 2 (not found) when no process shares anything
};

Running read_running();

/// The same as the configuration that this process's own log goes by, for who needs no second copy: until it is taken
/// anew. Null when no process shares anything. Throws Failure when what they share cannot be read.
const Kor_LogConf* take_running();

/// Throws Failure when there is something that cannot be read, and so cannot be changed.
void require_readable(const Running& running);

/// What the library reads in a file. Throws Failure where there is none.
Conf read_conf(const std::wstring& path);

/// The same of bytes that are in no file. Leaves nothing behind.
Conf conf_of(std::string_view bytes);

/// Gives it to every process. Throws Failure when the right is missing.
void publish(Kor_LogConf& conf);

/// Copies one package: its name, level and rules.
void copy_package(Kor_LogConf& to, const Kor_LogConf& from, int package);

// Words ---------------------------------------------------------------------------------------------------

/// "debug"; "9" for what is no level.
std::string level_name(int level);

/// "7 debug".
std::string level_text(int level);

/// 0 to 7 of a number or a name; throws Failure for anything else.
int read_level(const std::string& text);

/// "standard error", "the event log", "the processes' own files", of 0 to 2; 3 for the last and a debugger.
std::string output_text(int output);
int output_of(const Kor_LogConf& conf);

/// "10 MB", "no limit".
std::string limit_text(unsigned int megabytes);

/// "Replay", or "package 320" where it has no name.
std::string package_text(const Kor_LogConf& conf, int package);

/// "client 192.0.2.7 in viewer"; "everybody" for a rule without entries.
std::string whom_text(const Kor_LogLevelRule& rule);

/// The rules of a package that there can be, whatever the count in a foreign block says.
std::vector<const Kor_LogLevelRule*> rules_of(const Kor_LogConf& conf, int package);

// Differences ---------------------------------------------------------------------------------------------

struct Difference
{
    int package = -1; ///< -1: output or limit
    std::string text; ///< "Replay 6 to 7 for client 192.0.2.7"
};

/// What changes for whom when one takes the place of the other.
std::vector<Difference> differences(const Kor_LogConf& from, const Kor_LogConf& to);
std::vector<std::string> texts_of(const std::vector<Difference>& differences);
} // namespace levelsync

#endif // LEVELSYNC_CONF_H
