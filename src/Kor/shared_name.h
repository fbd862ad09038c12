// shared_name.h - under which name this process looks for the machine's configuration block.

#ifndef KOR_SHARED_NAME_H
#define KOR_SHARED_NAME_H

namespace kor
{
inline constexpr char GLOBAL_BLOCK_NAME[] = "Global\\SM_LOG_OBJ_NAME_12_0";
inline constexpr char LOCAL_BLOCK_NAME[] = "Local\\SM_LOG_OBJ_NAME_12_0";

/// One of the two above, chosen when a log is constructed; null before.
extern const char* shared_block_name;
} // namespace kor

#endif // KOR_SHARED_NAME_H
