#include "core/plain_format.h"

#include <cmath>
#include <cstdint>

#include "core/bounded_text.h"

namespace kor::core
{
namespace
{
/// Takes the text in front of the next conversion, or of the end, off a format.
std::string_view take_literal(const char*& at) noexcept
{
    const char* const begin = at;
    while (*at != '\0' && *at != '%')
        ++at;
    return {begin, static_cast<std::size_t>(at - begin)};
}

constexpr int NONE = -1;
constexpr int LARGEST_FIELD = 9999; ///< of widths and precisions; with more, the runtime's own limits matter

/// Arguments of a call, one after the other.
class Arguments
{
public:
    explicit Arguments(std::va_list list) noexcept { va_copy(m_list, list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() { va_end(m_list); }

    template <class Type>
    Type next() noexcept
    {
        return va_arg(m_list, Type);
    }

private:
    std::va_list m_list;
};

/// What stands between a percent sign and its conversion.
struct Field
{
    bool left = false;
    bool zeros = false;
    bool plus = false;
    bool blank = false;
    int width = 0;
    int precision = NONE;
    int bytes = sizeof(int); ///< of a number
    bool has_length = false;

    bool is_signed() const noexcept { return plus || blank; }
};

/// Digits, or an asterisk, for which the number is an argument. False when it is out of range.
bool take_number(const char*& at, Arguments& args, int& number) noexcept
{
    if (*at == '*')
    {
        ++at;
        number = args.next<int>();
        return number >= -LARGEST_FIELD && number <= LARGEST_FIELD;
    }
    number = 0;
    for (; *at >= '0' && *at <= '9' && number <= LARGEST_FIELD; ++at)
        number = number * 10 + (*at - '0');
    return number <= LARGEST_FIELD;
}

void take_flags(const char*& at, Field& field) noexcept
{
    for (;; ++at)
    {
        switch (*at)
        {
        case '-':
            field.left = true;
            break;
        case '0':
            field.zeros = true;
            break;
        case '+':
            field.plus = true;
            break;
        case ' ':
            field.blank = true;
            break;
        default:
            return;
        }
    }
}

void take_length(const char*& at, Field& field) noexcept
{
    const char* const begin = at;
    if (at[0] == 'l' && at[1] == 'l')
    {
        at += 2;
        field.bytes = sizeof(long long);
    }
    else if (at[0] == 'l')
    {
        ++at;
        field.bytes = sizeof(long);
    }
    else if (at[0] == 'h')
    {
        ++at;
        field.bytes = sizeof(short);
    }
    else if (at[0] == 'I' && at[1] == '6' && at[2] == '4')
    {
        at += 3;
        field.bytes = sizeof(std::int64_t);
    }
    else if (at[0] == 'I' && at[1] == '3' && at[2] == '2')
    {
        at += 3;
        field.bytes = sizeof(std::int32_t);
    }
    else if (at[0] == 'I')
    {
        ++at;
        field.bytes = sizeof(std::ptrdiff_t);
    }
    field.has_length = at != begin;
}

/// Leaves at at the conversion.
bool take_field(const char*& at, Arguments& args, Field& field) noexcept
{
    take_flags(at, field);
    if (!take_number(at, args, field.width))
        return false;
    if (field.width < 0)
    {
        field.left = true;
        field.width = -field.width;
    }
    if (*at == '.')
    {
        ++at;
        if (!take_number(at, args, field.precision))
            return false;
        if (field.precision < 0)
            field.precision = NONE;
    }
    take_length(at, field);
    return true;
}

/// Appends a number's digits behind its sign, in its field.
void add_in_field(BoundedText& text, const Field& field, std::string_view sign, std::string_view digits) noexcept
{
    const std::size_t size = sign.size() + digits.size();
    const auto width = static_cast<std::size_t>(field.width);
    const std::size_t padding = width > size ? width - size : 0;
    if (padding != 0 && !field.left && !field.zeros)
        text.add_repeated(' ', padding);
    text.add(sign);
    if (padding != 0 && !field.left && field.zeros)
        text.add_repeated('0', padding);
    text.add(digits);
    if (padding != 0 && field.left)
        text.add_repeated(' ', padding);
}

std::string_view sign_of(bool negative, const Field& field) noexcept
{
    if (negative)
        return "-";
    if (field.plus)
        return "+";
    return field.blank ? " " : "";
}

// What is shorter than an int comes as one.
std::int64_t next_signed(Arguments& args, const Field& field) noexcept
{
    if (field.bytes == sizeof(std::int64_t))
        return args.next<std::int64_t>();
    const int value = args.next<int>();
    return field.bytes == sizeof(short) ? static_cast<short>(value) : value;
}

std::uint64_t next_unsigned(Arguments& args, const Field& field) noexcept
{
    if (field.bytes == sizeof(std::uint64_t))
        return args.next<std::uint64_t>();
    const unsigned int value = args.next<unsigned int>();
    return field.bytes == sizeof(short) ? static_cast<unsigned short>(value) : value;
}

bool add_signed(BoundedText& text, Arguments& args, const Field& field) noexcept
{
    if (field.precision != NONE)
        return false;
    const std::int64_t value = next_signed(args, field);
    const bool negative = value < 0;
    const auto magnitude = negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
    add_in_field(text, field, sign_of(negative, field), {digits, static_cast<std::size_t>(end - digits)});
    return true;
}

std::string_view hexadecimal(char* end, std::uint64_t value, const char* alphabet) noexcept
{
    char* at = end;
    do
        *--at = alphabet[value & 0xF];
    while ((value >>= 4) != 0);
    return {at, static_cast<std::size_t>(end - at)};
}

constexpr char SMALL[] = "0123456789abcdef";
constexpr char CAPITAL[] = "0123456789ABCDEF";

bool add_unsigned(BoundedText& text, Arguments& args, const Field& field, char conversion) noexcept
{
    if (field.precision != NONE || field.is_signed())
        return false;
    const std::uint64_t value = next_unsigned(args, field);
    char buffer[20];
    std::string_view digits;
    if (conversion == 'u')
        digits = {buffer, static_cast<std::size_t>(std::to_chars(buffer, buffer + sizeof buffer, value).ptr - buffer)};
    else
        digits = hexadecimal(buffer + sizeof buffer, value, conversion == 'x' ? SMALL : CAPITAL);
    add_in_field(text, field, {}, digits);
    return true;
}

bool add_pointer(BoundedText& text, Arguments& args, const Field& field) noexcept
{
#if defined(_WIN64)
    if (field.width != 0 || field.left || field.zeros || field.is_signed() || field.precision != NONE ||
        field.has_length)
        return false;
    char buffer[16];
    Field sixteen;
    sixteen.zeros = true;
    sixteen.width = sizeof buffer;
    add_in_field(text, sixteen, {}, hexadecimal(buffer + sizeof buffer, args.next<std::uint64_t>(), CAPITAL));
    return true;
#else
    static_cast<void>(text);
    static_cast<void>(args);
    static_cast<void>(field);
    return false;
#endif
}

constexpr int MOST_DECIMALS = 9;
constexpr std::uint64_t POWERS_OF_TEN[MOST_DECIMALS + 1] = {1,       10,        100,        1'000,       10'000,
                                                            100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

/// value * 10^decimals rounded to a whole number, where there is no doubt about it. value is not negative.
///
/// Runtimes differ: some round the exact number and a tie to the even digit, some a text of 17 digits and a tie
/// upwards. They can only do so where the number is nearly in the middle.
bool scale(double value, int decimals, std::uint64_t& scaled) noexcept
{
    constexpr double LARGEST = 1e14;
    const std::uint64_t power = POWERS_OF_TEN[decimals];
    if (!(value * static_cast<double>(power) < LARGEST)) // nor what is no number
        return false;
    const auto whole = static_cast<std::uint64_t>(value);
    // Exact up to here. Of the fraction, what lies below 2^-64 is left out.
    const auto fraction = static_cast<std::uint64_t>((value - static_cast<double>(whole)) * 0x1p64);
    const std::uint64_t low = (fraction & 0xFFFFFFFF) * power;
    const std::uint64_t high = (fraction >> 32) * power + (low >> 32);
    const std::uint64_t rest = (high << 32) | (low & 0xFFFFFFFF);
    scaled = whole * power + (high >> 32);

    // In units of 2^-64: what was left out, and what a text of 17 digits may be off by, less than 2^-53 of the number,
    // eight times over.
    constexpr std::uint64_t MIDDLE = std::uint64_t{1} << 63;
    const std::uint64_t doubtful = power + ((scaled + 1) << 14);
    const std::uint64_t distance = rest > MIDDLE ? rest - MIDDLE : MIDDLE - rest;
    if (rest > MIDDLE)
        ++scaled;
    return distance > doubtful;
}

bool add_fixed(BoundedText& text, Arguments& args, const Field& field, char (*decimal_point)()) noexcept
{
    const int decimals = field.precision == NONE ? 6 : field.precision;
    if (field.has_length || decimals > MOST_DECIMALS)
        return false;
    const double value = args.next<double>();
    const bool negative = std::signbit(value);
    std::uint64_t scaled = 0;
    if (!scale(std::fabs(value), decimals, scaled) || (negative && scaled == 0))
        return false;

    char buffer[32];
    char* end = std::to_chars(buffer, buffer + sizeof buffer, scaled / POWERS_OF_TEN[decimals]).ptr;
    if (decimals != 0)
    {
        *end = decimal_point();
        if (*end == '\0')
            return false;
        std::uint64_t rest = scaled % POWERS_OF_TEN[decimals];
        for (char* at = end + decimals; at != end; rest /= 10)
            *at-- = static_cast<char>('0' + rest % 10);
        end += decimals + 1;
    }
    add_in_field(text, field, sign_of(negative, field), {buffer, static_cast<std::size_t>(end - buffer)});
    return true;
}

bool add_text(BoundedText& text, Arguments& args, const Field& field) noexcept
{
    if (field.has_length || field.zeros || field.is_signed())
        return false;
    const char* const string = args.next<const char*>();
    if (string == nullptr)
        return false; // the runtimes differ in what they cut
    const auto most = field.precision == NONE ? SIZE_MAX : static_cast<std::size_t>(field.precision);
    return text.add_aligned(string, most, static_cast<std::size_t>(field.width), field.left);
}

bool add_character(BoundedText& text, Arguments& args, const Field& field) noexcept
{
    if (field.has_length || field.zeros || field.is_signed() || field.precision != NONE)
        return false;
    const char one = static_cast<char>(args.next<int>());
    add_in_field(text, field, {}, {&one, 1});
    return true;
}

/// A conversion with a field. at is left behind it.
bool add_conversion(BoundedText& text, const char*& at, Arguments& args, char (*decimal_point)()) noexcept
{
    Field field;
    if (!take_field(at, args, field))
        return false;
    switch (const char conversion = *at++)
    {
    case 'd':
    case 'i':
        return add_signed(text, args, field);
    case 'u':
    case 'x':
    case 'X':
        return add_unsigned(text, args, field, conversion);
    case 'f':
        return add_fixed(text, args, field, decimal_point);
    case 's':
        return add_text(text, args, field);
    case 'c':
        return add_character(text, args, field);
    case 'p':
        return add_pointer(text, args, field);
    default:
        return false;
    }
}
} // namespace

int format_plain(
    char* buffer, std::size_t size, const char* format, std::va_list list, char (*decimal_point)()) noexcept
{
    BoundedText text(buffer, size + 1);
    Arguments args(list);
    for (const char* at = format;;)
    {
        text.add(take_literal(at));
        if (*at == '\0')
            return text.finish();
        ++at;
        switch (*at) // bare, as most are
        {
        case 'd':
        case 'i':
            text.add_number(args.next<int>());
            ++at;
            break;
        case 'u':
            text.add_unsigned(args.next<unsigned int>());
            ++at;
            break;
        case 's':
        {
            const char* const string = args.next<const char*>();
            text.add_terminated(string == nullptr ? "(null)" : string);
            ++at;
            break;
        }
        case 'c':
            text.add(static_cast<char>(args.next<int>()));
            ++at;
            break;
        case '%':
            text.add('%');
            ++at;
            break;
        default:
            if (!add_conversion(text, at, args, decimal_point))
                return NOT_PLAIN;
        }
    }
}
} // namespace kor::core
