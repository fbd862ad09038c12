// line_ring.cpp - any bytes as recorded lines: nothing is read beyond them, and two readers find the same.

#include "core/line_ring_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "../support/recorded_lines.h"
#include "require.h"

using kor::core::LineOfRing;
using kor::core::LineRingReader;

namespace
{
/// The bytes behind a header that says what a small ring's would, so that some inputs are rings.
std::vector<std::uint64_t> with_header(const std::vector<std::uint64_t>& bytes)
{
    std::vector<std::uint64_t> ring{
        0, 64 | std::uint64_t{16} << 32, 128 | std::uint64_t{5} << 32, 0x53454E494C4D554C, 1, 2, 3, 4};
    ring.insert(ring.end(), bytes.begin(), bytes.end());
    return ring;
}

/// By sequence; of equal ones, which no writer makes, all must be there in any order.
void check(const std::vector<std::uint64_t>& memory)
{
    const std::size_t size = memory.size() * 8;
    std::vector<std::uint64_t> room(memory.size());
    LineRingReader reader(memory.data(), size, room.data(), size);
    const std::optional<recorded::Lines> other = recorded::read(memory.data(), size);
    require(reader.is_ring() == other.has_value());
    std::vector<LineOfRing> lines;
    LineOfRing line{};
    while (reader.next(line))
        lines.push_back(line);
    require(lines.size() == (other ? other->lines.size() : 0));
    if (!other)
        return;
    std::stable_sort(
        lines.begin(), lines.end(),
        [](const LineOfRing& one, const LineOfRing& next) { return one.sequence < next.sequence; });
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        const auto* const begin = reinterpret_cast<const char*>(room.data());
        require(is_empty_or_inside(lines[i].text, {begin, size}));
        require(lines[i].sequence == other->lines[i].sequence);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<std::uint64_t> memory((size + 7) / 8);
    if (size != 0)
        std::memcpy(memory.data(), data, size);
    check(memory);
    check(with_header(memory));
    return 0;
}
