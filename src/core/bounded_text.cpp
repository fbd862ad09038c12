#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
/// Two pieces of the same size, which may overlap: the text's first bytes and its last.
template <class Chunk>
void copy_ends(char* to, const char* from, std::size_t length) noexcept
{
    Chunk first, last;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + length - sizeof last, sizeof last);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + length - sizeof last, &last, sizeof last);
}
} // namespace

char* copy_text(char* to, const char* from, std::size_t length) noexcept
{
    struct Block
    {
        std::uint64_t words[2];
    };
    if (length > 512)
        std::memcpy(to, from, length);
    else if (length >= sizeof(Block))
    {
        for (std::size_t at = 0; at + sizeof(Block) <= length; at += sizeof(Block))
            std::memcpy(to + at, from + at, sizeof(Block));
        std::memcpy(to + length - sizeof(Block), from + length - sizeof(Block), sizeof(Block));
    }
    else if (length >= 8)
        copy_ends<std::uint64_t>(to, from, length);
    else if (length >= 4)
        copy_ends<std::uint32_t>(to, from, length);
    else if (length >= 2)
        copy_ends<std::uint16_t>(to, from, length);
    else if (length == 1)
        *to = *from;
    return to + length;
}
} // namespace kor::core
