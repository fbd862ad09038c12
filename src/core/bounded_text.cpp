#include "core/bounded_text.h"

namespace kor::core
{
void copy_long_text(char* to, const char* from, std::size_t length) noexcept { std::memcpy(to, from, length); }
} // namespace kor::core
