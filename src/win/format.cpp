#include "win/format.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string_view>

#include "core/message.h"
#include "core/plain_format.h"
#include "win/guarded_call.h"
#include "win/owned.h"

namespace kor::win
{
using core::FORMAT_ERROR;
using core::MAX_MESSAGE;
using core::MESSAGE_SIZE;

namespace
{
struct FormatJob
{
    char* buffer; // null: only measure
    std::size_t size;
    const char* format;
    char* args;
    int length;
    bool failed;
};

/// The runtime's, as %f writes it; '\0' when that is more than one character.
char decimal_point()
{
    const char* const point = std::localeconv()->decimal_point;
    return point[0] != '\0' && point[1] == '\0' ? point[0] : '\0';
}

/// Runs guarded: owns nothing and works in the job's buffer. The system's formatter is used as it is
/// several times faster than the compiler's own, and scales with threads.
void run_format(void* argument)
{
    auto& job = *static_cast<FormatJob*>(argument);
    try
    {
        if (job.buffer == nullptr)
        {
            job.length = ::_vscprintf(job.format, job.args);
            return;
        }
        job.length = core::format_plain(job.buffer, job.size, job.format, job.args, &decimal_point);
        if (job.length == core::NOT_PLAIN)
            job.length = ::_vsnprintf(job.buffer, job.size, job.format, job.args);
    }
    catch (...) // whatever it is, it must not reach the host
    {
        job.failed = true;
    }
}

/// False when the arguments do not fit the format.
bool format_guarded(FormatJob& job) noexcept
{
    return job.format != nullptr && kor_guarded_call(&run_format, &job) == 0 && !job.failed;
}

int measure(const char* format, char* args) noexcept
{
    FormatJob job{nullptr, 0, format, args, -1, false};
    return format_guarded(job) ? job.length : -1;
}

/// Formats into the job's buffer, which has one byte more than its size, and terminates the text.
FormatResult format_into(FormatJob& job) noexcept
{
    if (!format_guarded(job))
        return FormatResult::MISFIT;
    job.buffer[job.size] = '\0'; // the formatter sets no end to a text that fills its room
    if (job.length >= 0)
        return FormatResult::WHOLE;
    // The formatter also returns -1, and leaves what it likes, when it cannot convert an argument.
    return measure(job.format, job.args) < static_cast<int>(job.size) ? FormatResult::MISFIT : FormatResult::CUT;
}

struct WideFormatJob
{
    wchar_t* buffer;
    std::size_t size;
    const wchar_t* format;
    char* args;
    int length; // -1: cut, or the arguments do not fit
    int whole_length;
};

/// Runs guarded.
void run_wide_format(void* argument)
{
    auto& job = *static_cast<WideFormatJob*>(argument);
    const std::size_t literal = ::wcsnlen(job.format, job.size);
    if (std::wmemchr(job.format, L'%', literal) == nullptr) // as most are
    {
        std::wmemcpy(job.buffer, job.format, literal);
        job.length = static_cast<int>(literal);
        return;
    }
    job.length = ::_vsnwprintf(job.buffer, job.size, job.format, job.args);
    // What the buffer holds means nothing when an argument could not be converted.
    job.whole_length = job.length < 0 ? ::_vscwprintf(job.format, job.args) : job.length;
}

struct LengthJob
{
    const char* text;
    std::size_t most;
    bool longer;
};

/// Runs guarded.
void run_length(void* argument)
{
    auto& job = *static_cast<LengthJob*>(argument);
    job.longer = ::strnlen(job.text, job.most + 1) > job.most;
}

int put(char* buffer, std::string_view text) noexcept
{
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return static_cast<int>(text.size());
}
} // namespace

bool is_longer(const char* text, std::size_t most) noexcept
{
    LengthJob job{text, most, false};
    return text != nullptr && kor_guarded_call(&run_length, &job) == 0 && job.longer;
}

FormatResult format_text(char* buffer, std::size_t size, const char* format, char* args) noexcept
{
    FormatJob job{buffer, size - 1, format, args, 0, false};
    const FormatResult result = format_into(job);
    if (result == FormatResult::MISFIT)
        put(buffer, FORMAT_ERROR.substr(0, FORMAT_ERROR.size() - 1));
    return result;
}

std::size_t format_wide_text(wchar_t* buffer, std::size_t size, const wchar_t* format, char* args) noexcept
{
    WideFormatJob job{buffer, size, format, args, 0, 0};
    const bool converted = kor_guarded_call(&run_wide_format, &job) == 0;
    if (converted && job.length >= 0)
        return static_cast<std::size_t>(job.length);
    if (converted && job.whole_length > static_cast<int>(size))
        return size;
    const std::string_view error = FORMAT_ERROR.substr(0, std::min(size, FORMAT_ERROR.size() - 1));
    std::copy(error.begin(), error.end(), buffer);
    return error.size();
}

int format_message(char* buffer, const char* format, char* args) noexcept
{
    FormatJob job{buffer, MAX_MESSAGE, format, args, 0, false};
    return format_into(job) == FormatResult::MISFIT ? put(buffer, FORMAT_ERROR) : job.length;
}

void print(std::FILE* stream, const char* format, char* args) noexcept
{
    char buffer[MESSAGE_SIZE];
    int length = format_message(buffer, format, args);
    const char* text = buffer;
    std::unique_ptr<char[]> large;
    if (length < 0 || length >= MAX_MESSAGE)
    {
        const auto whole = static_cast<std::size_t>(std::max(measure(format, args), MAX_MESSAGE));
        large.reset(new (std::nothrow) char[whole + 1]());
        FormatJob job{large.get(), whole, format, args, 0, false};
        const bool complete = large && format_guarded(job);
        text = complete ? large.get() : buffer;
        length = static_cast<int>(complete ? whole : static_cast<std::size_t>(MAX_MESSAGE));
    }
    std::fwrite(text, 1, static_cast<std::size_t>(length), stream);
}

std::string system_text(unsigned int error, bool for_format)
{
    void* raw = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
            FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&raw), 0, nullptr);
    const OwnedLocalMemory owner(raw);
    std::string text;
    for (DWORD i = 0; i < length && raw != nullptr; ++i)
        text.append(for_format && static_cast<char*>(raw)[i] == '%' ? 2 : 1, static_cast<char*>(raw)[i]);
    return text;
}
} // namespace kor::win
