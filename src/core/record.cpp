#include "core/record.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
constexpr std::int64_t MS_PER_SECOND = 1000;
constexpr int SIGNIFICANT_DIGITS = 6;
constexpr std::size_t NUMBER_SIZE = 20; // of any std::int64_t

// A thread of a few records takes little memory, one of many asks for more seldom enough not to notice.
constexpr std::size_t FIRST_PIECE = 4 * 1024;
constexpr std::size_t LARGEST_PIECE = 256 * 1024;

std::string_view text_or_null(const char* text) noexcept { return text == nullptr ? "(null)" : short_text(text); }

char* put(char* to, std::string_view text) noexcept { return copy_text(to, text.data(), text.size()); }

char* put_field(char* to, std::string_view text) noexcept
{
    *to = ',';
    return put(to + 1, text);
}
} // namespace

std::int64_t counter_milliseconds(std::int64_t counter, std::int64_t frequency) noexcept
{
    if (counter <= std::numeric_limits<std::int64_t>::max() / MS_PER_SECOND)
        return counter * MS_PER_SECOND / frequency;
    return counter / frequency * MS_PER_SECOND + counter % frequency * MS_PER_SECOND / frequency;
}

char* write_value(char* to, float value) noexcept
{
    if (std::isnan(value))
        return put(to, "nan"); // of no sign, whatever its sign bit is
    return std::to_chars(to, to + VALUE_SIZE, value, std::chars_format::general, SIGNIFICANT_DIGITS).ptr;
}

// RecordText ------------------------------------------------------------------------------------------
bool RecordText::append(const Record& record) noexcept
{
    const std::string_view first = text_or_null(record.first);
    const std::string_view second = text_or_null(record.second);
    const std::string_view third = text_or_null(record.third);
    const std::string_view fourth = text_or_null(record.fourth);
    constexpr std::size_t SEPARATORS = 6;
    if (!make_room(first.size() + second.size() + third.size() + fourth.size() + NUMBER_SIZE + VALUE_SIZE + SEPARATORS))
        return false;
    char* at = std::to_chars(m_at, m_at + NUMBER_SIZE, record.milliseconds).ptr;
    at = put_field(at, first);
    at = put_field(at, second);
    *at++ = ',';
    at = write_value(at, record.value);
    at = put_field(at, third);
    at = put_field(at, fourth);
    *at++ = '\n';
    *at = '\0';
    m_at = at;
    return true;
}

bool RecordText::append(const RecordText& other) noexcept
{
    bool whole = true;
    other.for_each_piece([&](const char* piece) { whole = append_text(piece, std::strlen(piece)) && whole; });
    return whole;
}

bool RecordText::append_text(const char* text, std::size_t length) noexcept
{
    if (!make_room(length))
        return false;
    m_at = put(m_at, {text, length});
    *m_at = '\0';
    return true;
}

/// For that many characters and a terminator.
bool RecordText::make_room(std::size_t length) noexcept
{
    if (length <= static_cast<std::size_t>(m_end - m_at))
        return true;
    const std::size_t size = std::max(std::clamp(m_last_size * 2, FIRST_PIECE, LARGEST_PIECE), length + 1);
    try
    {
        m_pieces.emplace_back();
        m_pieces.back().reset(new (std::nothrow) char[size]);
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    if (m_pieces.back() == nullptr)
    {
        m_pieces.pop_back();
        return false;
    }
    m_at = m_pieces.back().get();
    m_end = m_at + size - 1;
    *m_at = '\0';
    m_last_size = size;
    return true;
}

// RecordStreams ---------------------------------------------------------------------------------------
RecordText* RecordStreams::find_or_make(std::uint32_t thread_id) noexcept
{
    Link* link = &m_buckets[thread_id % BUCKETS];
    while (Stream* const known = link->load(std::memory_order_acquire))
    {
        if (known->thread_id == thread_id)
            return &known->text;
        link = &known->next;
    }
    return add(link, thread_id);
}

/// Adds a stream at the link, which was the last one of its bucket, or behind what came there meanwhile.
RecordText* RecordStreams::add(Link* link, std::uint32_t thread_id) noexcept
{
    auto* const added = new (std::nothrow) Stream(thread_id);
    if (added == nullptr)
        return nullptr;
    Stream* other = nullptr;
    while (!link->compare_exchange_weak(other, added, std::memory_order_acq_rel))
    {
        if (other == nullptr)
            continue;
        link = &other->next;
        other = nullptr;
    }
    return &added->text;
}

void RecordStreams::append(const RecordStreams& other) noexcept
{
    other.for_each_stream(
        [this](const Stream& stream)
        {
            if (RecordText* const text = find_or_make(stream.thread_id))
                text->append(stream.text);
        });
}

void RecordStreams::clear() noexcept
{
    for_each_stream([](const Stream& stream) { delete &stream; });
    for (Link& bucket : m_buckets)
        bucket.store(nullptr, std::memory_order_relaxed);
}
} // namespace kor::core
