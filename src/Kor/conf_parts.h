// conf_parts.h - steps of what a configuration does, for those who take them one by one.

#ifndef KOR_CONF_PARTS_H
#define KOR_CONF_PARTS_H

#include "Kor_LogConf.h"

namespace kor
{
/// Copies everything but the stamp, byte for byte.
void copy_all_but_stamp(Kor_LogConf& to, const Kor_LogConf& from) noexcept;
} // namespace kor

#endif // KOR_CONF_PARTS_H
