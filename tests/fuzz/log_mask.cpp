// log_mask.cpp - any bytes as a log to be masked: no address and no known name is left, and all else is.

#include "core/log_mask.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "require.h"

using kor::core::AddressBytes;
using kor::core::LogMask;

namespace
{
bool is_word(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

/// Looks at each run of digits and dots that stands alone, by itself and not by way of the mask.
void require_no_address(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size())
    {
        const std::size_t begin = text.find_first_of("0123456789", at);
        if (begin == std::string_view::npos)
            return;
        const std::size_t end = std::min(text.find_first_not_of("0123456789.", begin), text.size());
        at = end;
        const bool alone =
            (begin == 0 || (!is_word(text[begin - 1]) && text[begin - 1] != '.' && text[begin - 1] != ':' &&
                            text[begin - 1] != '-')) && // of a stand-in for what was all digits
            (end == text.size() || (!is_word(text[end]) && text[end] != ':'));
        AddressBytes address;
        if (alone && kor::core::read_address(text.substr(begin, end - begin), address))
            require(address.bytes[12] == 127 || address.bytes[12] == 0);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    LogMask mask;
    const std::size_t end = std::min<std::size_t>(input.find('\n'), input.size());
    mask.add_user(input.substr(0, end));
    mask.learn(kor::core::read_log_line(input.substr(0, end)));
    const std::string once = mask.mask(input);
    require_no_address(once);
    require(mask.mask(input) == once || mask.users() > 0); // a folder further on may have told a name
    AddressBytes address;
    kor::core::read_address(input, address);
    return 0;
}
