// record.h - timed records as lines of text, kept in memory by thread until somebody takes them.

#ifndef KOR_CORE_RECORD_H
#define KOR_CORE_RECORD_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kor::core
{
/// What a counter of frequency ticks a second shows, in whole milliseconds: counter * 1000 / frequency,
/// also where the product does not fit. Both are positive.
std::int64_t counter_milliseconds(std::int64_t counter, std::int64_t frequency) noexcept;

/// Characters that write_value needs at most.
constexpr std::size_t VALUE_SIZE = 16;

/// Writes a number as a stream of the standard library does by default: six significant digits, "%g".
/// Returns the end; there is no terminator.
char* write_value(char* to, float value) noexcept;

/// One record. Texts may be null and are then written as "(null)".
struct Record
{
    std::int64_t milliseconds;
    const char* first;
    const char* second;
    float value;
    const char* third;
    const char* fourth;
};

/// The lines of one thread's records. Grows in pieces that stay where they are: what has been written is
/// never copied again, so that no record has to wait for that. Not for several threads at a time.
class RecordText
{
public:
    RecordText() noexcept = default;
    RecordText(const RecordText&) = delete;
    RecordText& operator=(const RecordText&) = delete;

    /// Appends "milliseconds,first,second,value,third,fourth\n". Without memory for it the record is left
    /// out as a whole, and the result is false.
    bool append(const Record& record) noexcept;

    /// Appends what another one has. False when some of it was left out.
    bool append(const RecordText& other) noexcept;

    /// Calls use(const char*) with each piece in its order: a text of whole lines with a terminator.
    template <class Use>
    void for_each_piece(Use use) const
    {
        for (const auto& piece : m_pieces)
            use(static_cast<const char*>(piece.get()));
    }

private:
    bool append_text(const char* text, std::size_t length) noexcept;
    bool make_room(std::size_t length) noexcept;

    std::vector<std::unique_ptr<char[]>> m_pieces;
    char* m_at = nullptr;  // in the last piece; a terminator stands there
    char* m_end = nullptr; // of that piece's room for characters
    std::size_t m_last_size = 0;
};

/// The records of all threads, by thread id.
class RecordStreams
{
public:
    static constexpr std::size_t BUCKETS = 1024;

    RecordStreams() noexcept = default;
    RecordStreams(const RecordStreams&) = delete;
    RecordStreams& operator=(const RecordStreams&) = delete;
    ~RecordStreams() { clear(); }

    /// The text of that thread, made when there is none; null when there is no memory for it. Several
    /// threads may ask at the same time, each for its own: nobody waits.
    RecordText* find_or_make(std::uint32_t thread_id) noexcept;

    /// Appends what another one has, as far as there is memory.
    void append(const RecordStreams& other) noexcept;

    /// Calls use(const RecordText&) for one thread after the other: by the remainder of their ids and
    /// BUCKETS, and where that is the same by their first record.
    template <class Use>
    void for_each(Use use) const
    {
        for_each_stream([&](const Stream& stream) { use(stream.text); });
    }

    void clear() noexcept;

private:
    // Each on cache lines of its own, as each is written by another thread.
    struct alignas(64) Stream
    {
        explicit Stream(std::uint32_t id) noexcept : thread_id(id) {}

        RecordText text;
        const std::uint32_t thread_id;
        std::atomic<Stream*> next{nullptr};
    };
    using Link = std::atomic<Stream*>;

    static RecordText* add(Link* link, std::uint32_t thread_id) noexcept;

    template <class Use>
    void for_each_stream(Use use) const
    {
        for (const Link& bucket : m_buckets)
        {
            const Stream* next = bucket.load(std::memory_order_acquire);
            while (const Stream* const stream = next)
            {
                next = stream->next.load(std::memory_order_acquire); // as use may be the end of it
                use(*stream);
            }
        }
    }

    std::array<Link, BUCKETS> m_buckets{};
};
} // namespace kor::core

#endif // KOR_CORE_RECORD_H
