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

int count_digits(std::uint64_t value) noexcept
{
    int count = 1;
    for (std::uint64_t end = 10; value >= end; end *= 10)
        if (++count == 20) // its end would be beyond the type
            break;
    return count;
}

char* put_digits(char* to, std::uint64_t value, int count) noexcept
{
    static constexpr char PAIRS[] = "00010203040506070809"
                                    "10111213141516171819"
                                    "20212223242526272829"
                                    "30313233343536373839"
                                    "40414243444546474849"
                                    "50515253545556575859"
                                    "60616263646566676869"
                                    "70717273747576777879"
                                    "80818283848586878889"
                                    "90919293949596979899";
    char* at = to + count;
    for (; at - to >= 2; value /= 100)
        std::memcpy(at -= 2, PAIRS + 2 * (value % 100), 2);
    if (at != to)
        *to = static_cast<char>('0' + value % 10);
    return to + count;
}
} // namespace kor::core
