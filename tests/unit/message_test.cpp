// message_test.cpp - the end of a formatted message, and the line that is written of it.

#include "core/message.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <string_view>

#include "guarded_buffer.h"

using kor::core::ComposedLine;
using kor::core::end_with_newline;
using kor::core::LineParts;
using namespace std::string_view_literals;

namespace
{
bool memory_is_out = false;
int refused_requests = 0;

/// No memory for arrays that are asked for without exceptions, while there is one of these.
class OutOfMemory
{
public:
    OutOfMemory()
    {
        memory_is_out = true;
        refused_requests = 0;
    }
    OutOfMemory(const OutOfMemory&) = delete;
    OutOfMemory& operator=(const OutOfMemory&) = delete;
    ~OutOfMemory() { memory_is_out = false; }
};
} // namespace

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    if (memory_is_out)
    {
        ++refused_requests;
        return nullptr;
    }
    try
    {
        return ::operator new[](size);
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

namespace
{
constexpr std::size_t BUFFER_SIZE = 2048;

/// The buffer as the formatter leaves it: text with its terminator, or none when it was cut.
void format_into(GuardedBuffer& buffer, std::string_view text)
{
    text.copy(buffer.data(), buffer.size());
    if (text.size() < buffer.size())
        buffer.data()[text.size()] = '\0';
}
} // namespace

TEST(MessageEnd, IsANewlineUnlessThereIsOne)
{
    struct Row
    {
        std::string text;
        int length; // as the formatter tells it
        std::string expected;
    };
    const Row rows[] = {
        {"", 0, "\n"},
        {"\n", 1, "\n"},
        {"a", 1, "a\n"},
        {"a\n", 2, "a\n"},
        {"a\n\n", 3, "a\n\n"},
        {"a\nb", 3, "a\nb\n"},
        {"a\r", 2, "a\r\n"},
        {std::string(2045, 'x'), 2045, std::string(2045, 'x') + '\n'},
        {std::string(2046, 'x'), 2046, std::string(2046, 'x') + '\n'},
        {std::string(2045, 'x') + '\n', 2046, std::string(2045, 'x') + '\n'},
        {std::string(2047, 'x'), 2047, std::string(2046, 'x') + '\n'},
        {std::string(2046, 'x') + '\n', 2047, std::string(2046, 'x') + '\n'},
        {std::string(2045, 'x') + "\ny", 2047, std::string(2045, 'x') + "\n\n"},
        {std::string(2047, 'x'), -1, std::string(2046, 'x') + '\n'},
        {std::string(2048, 'x'), -1, std::string(2046, 'x') + '\n'}, // without a terminator
        {std::string(2046, 'x') + '\n', -1, std::string(2046, 'x') + '\n'},
        {std::string(2047, 'x'), 2048, std::string(2046, 'x') + '\n'},
        {std::string(2047, 'x'), 100'000, std::string(2046, 'x') + '\n'}, // the length the text would have had
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(std::to_string(row.text.size()) + " characters, length " + std::to_string(row.length));
        GuardedBuffer buffer(BUFFER_SIZE);
        format_into(buffer, row.text);

        EXPECT_EQ(end_with_newline(buffer.data(), row.length), static_cast<int>(row.expected.size()));
        EXPECT_EQ(buffer.text(), row.expected);
        EXPECT_TRUE(buffer.is_terminated());
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(MessageEnd, OfATextWithANulIsLookedForAtItsLength)
{
    GuardedBuffer buffer(BUFFER_SIZE);
    format_into(buffer, "a\0b"sv);
    EXPECT_EQ(end_with_newline(buffer.data(), 3), 4);
    EXPECT_EQ(std::string_view(buffer.data(), 5), "a\0b\n\0"sv);
}

TEST(MessageEnd, OfAnEmptyTextIsNotLookedForInFrontOfIt)
{
    char bytes[1 + BUFFER_SIZE] = "\n";
    EXPECT_EQ(end_with_newline(bytes + 1, 0), 1);
    EXPECT_STREQ(bytes, "\n\n");
}

TEST(MessageSizes, AreThoseOfTheBuffer)
{
    EXPECT_EQ(kor::core::MESSAGE_SIZE, 2048u);
    EXPECT_EQ(kor::core::MAX_MESSAGE, 2047);
}

TEST(FormatError, ReadsAsLaidDown)
{
    EXPECT_EQ(
        kor::core::FORMAT_ERROR, "!!! ERROR !!! Caught exception while formatting log message - Check log line for "
                                 "format discrepancy and null values. !!! ERROR !!!\n");
}

TEST(TextMode, WritesACarriageReturnBeforeEachNewline)
{
    struct Row
    {
        std::string_view text;
        std::string_view expected;
    };
    const Row rows[] = {
        {"", ""},
        {"a", "a"},
        {"a\n", "a\r\n"},
        {"\n", "\r\n"},
        {"\n\n\n", "\r\n\r\n\r\n"},
        {"a\nb", "a\r\nb"},
        {"\na", "\r\na"},
        {"a\r\n", "a\r\r\n"},
        {"a\rb", "a\rb"},
        {"a\0b\nc"sv, "a\0b\r\nc"sv},
        {"\xC3\xA4\n", "\xC3\xA4\r\n"},
        {"\x1A\n", "\x1A\r\n"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(2 * row.text.size());
        char* const end = kor::core::append_text_mode(buffer.data(), row.text);
        EXPECT_EQ(std::string_view(buffer.data(), static_cast<std::size_t>(end - buffer.data())), row.expected);
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(TextMode, FindsANewlineAtEveryPlace)
{
    // Neighbours that a search of several bytes at once might take for a newline.
    for (const char neighbour : {'a', '\0', '\x09', '\x0B', '\x8A', '\x7F', '\x80', '\xFF'})
    {
        for (std::size_t length = 1; length <= 40; ++length)
        {
            for (std::size_t place = 0; place < length; ++place)
            {
                std::string text(length, neighbour);
                text[place] = '\n';
                const std::string expected =
                    std::string(place, neighbour) + "\r\n" + std::string(length - place - 1, neighbour);

                GuardedBuffer buffer(2 * length);
                const char* const end = kor::core::append_text_mode(buffer.data(), text);
                ASSERT_EQ(std::string_view(buffer.data(), static_cast<std::size_t>(end - buffer.data())), expected);
                ASSERT_TRUE(buffer.guards_hold());
            }
        }
    }
}

TEST(TextMode, LeavesTextWithoutNewlinesAsItIs)
{
    for (int byte = 0; byte < 256; ++byte)
    {
        if (byte == '\n')
            continue;
        const std::string text(19, static_cast<char>(byte));
        GuardedBuffer buffer(19); // not a byte more is written than is appended
        ASSERT_EQ(kor::core::append_text_mode(buffer.data(), text), buffer.data() + 19);
        ASSERT_EQ(std::string_view(buffer.data(), 19), text);
        ASSERT_TRUE(buffer.guards_hold());
    }
}

TEST(TextMode, NeedsTwiceTheLengthAtMost)
{
    const std::string newlines(1000, '\n');
    GuardedBuffer buffer(2000);
    EXPECT_EQ(kor::core::append_text_mode(buffer.data(), newlines), buffer.data() + 2000);
    EXPECT_TRUE(buffer.guards_hold());
}

TEST(TextMode, OfALineIsThatOfItsPartsPutTogether)
{
    const std::string_view headlines[] = {"", "head ->", "he\nad ->", "\n"};
    const std::string_view messages[] = {"", "text", "text\n", "two\nlines\n", "\n", "a\0b\n"sv};
    for (const std::string_view headline : headlines)
        for (const std::string_view message : messages)
            for (const std::string_view end : {"", "\n", " \n"})
            {
                const LineParts parts{headline, message, end};
                const ComposedLine line(parts);
                GuardedBuffer expected(2 * line.text().size());
                const char* const expected_end = kor::core::append_text_mode(expected.data(), line.text());
                GuardedBuffer buffer(2 * parts.size());
                const char* const buffer_end = kor::core::append_text_mode(buffer.data(), parts);
                GuardedBuffer plain(parts.size());
                EXPECT_EQ(kor::core::append(plain.data(), parts), plain.data() + parts.size());
                EXPECT_EQ(std::string_view(plain.data(), parts.size()), line.text());
                EXPECT_TRUE(plain.guards_hold());
                EXPECT_EQ(parts.size(), line.text().size());
                EXPECT_EQ(
                    std::string_view(buffer.data(), static_cast<std::size_t>(buffer_end - buffer.data())),
                    std::string_view(expected.data(), static_cast<std::size_t>(expected_end - expected.data())));
                EXPECT_TRUE(buffer.guards_hold());
            }
}

TEST(ComposedLine, JoinsHeadlineMessageAndEnd)
{
    struct Row
    {
        std::string_view headline;
        std::string_view message;
        std::string_view end;
        std::string_view expected;
    };
    const Row rows[] = {
        {"head ->", "text\n", "", "head -> text\n"},
        {"head ->", "text", "\n", "head -> text\n"},
        {"head ->", "text", " \n", "head -> text \n"},
        {"head ->", "", "\n", "head -> \n"},
        {"", "text\n", "", "text\n"},
        {"", "text", " \n", "text \n"},
        {"", "", "", ""},
        {"", "a\0b"sv, "\n", "a\0b\n"sv},
    };
    for (const Row& row : rows)
    {
        const ComposedLine line(LineParts{row.headline, row.message, row.end});
        EXPECT_EQ(line.text(), row.expected);
    }
}

TEST(ComposedLine, OfAnyLengthIsWhole)
{
    const std::string headline(199, 'h');
    for (const std::size_t length :
         {0u, 1u, 2047u, 2048u, 2100u, 2101u, 2102u, 2103u, 2104u, 2105u, 2301u, 2302u, 2303u, 2304u, 4096u, 100'000u})
    {
        const std::string message(length, 'm');
        const ComposedLine line(LineParts{headline, message, " \n"});
        EXPECT_EQ(line.text(), headline + ' ' + message + " \n") << length;
        const ComposedLine bare(LineParts{"", message, "\n"});
        EXPECT_EQ(bare.text(), message + '\n') << length;
    }
}

TEST(ComposedLine, OfOrdinaryLengthNeedsNoMemory)
{
    const std::string headline(199, 'h');
    const std::string message(2047, 'm');
    const OutOfMemory out;
    const ComposedLine line(LineParts{headline, message, " \n"});
    EXPECT_EQ(refused_requests, 0);
    EXPECT_EQ(line.text(), headline + ' ' + message + " \n");
}

TEST(ComposedLine, WithoutMemoryIsCut)
{
    const std::string message = "start of " + std::string(100'000, 'm');
    const OutOfMemory out;
    const ComposedLine line(LineParts{"head ->", message, "\n"});
    EXPECT_EQ(refused_requests, 1);
    const std::string whole = "head -> " + message + '\n';
    EXPECT_GE(line.text().size(), BUFFER_SIZE);
    EXPECT_LT(line.text().size(), sizeof line);
    EXPECT_EQ(line.text(), whole.substr(0, line.text().size()));
}
