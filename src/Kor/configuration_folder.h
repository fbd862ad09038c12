// configuration_folder.h - where the files of the log and of its configuration are.

#ifndef KOR_CONFIGURATION_FOLDER_H
#define KOR_CONFIGURATION_FOLDER_H

#include <string>

namespace kor
{
/// What Kor_LogFile::GetLogConfigDir gives, with all characters that the folder's name has: the value of
/// PRISMATE_LOG_DIR, or, with a warning on standard output, "log". For win::system_path.
std::wstring configuration_folder();
} // namespace kor

#endif // KOR_CONFIGURATION_FOLDER_H
