// conf_parts.h - steps of what a configuration does, for those who take them one by one.

#ifndef KOR_CONF_PARTS_H
#define KOR_CONF_PARTS_H

#include "Kor_LogConf.h"

namespace kor
{
/// What each new configuration does first: where PRISMATE_LOG_CONSOLE is "1", gives a process without a console one.
void offer_console();

/// Stores a package's name; one that is too long is cut, with a warning on standard output.
void set_package_name(char (&field)[Kor_LogConf::PACKAGE_NAME_SIZE], const char* name);

/// Copies everything but the stamp, byte for byte.
void copy_all_but_stamp(Kor_LogConf& to, const Kor_LogConf& from) noexcept;
} // namespace kor

#endif // KOR_CONF_PARTS_H
