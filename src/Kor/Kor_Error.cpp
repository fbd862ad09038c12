#include "Kor_Error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "win/format.h"
#include "win/kept_errors.h"
#include "win/text.h"

using kor::win::duplicate;
using kor::win::KeptErrors;

static_assert(offsetof(Kor_ErrorValue, value) == 0 && offsetof(Kor_ErrorValue, logMsg) == 8);

namespace
{
constexpr std::size_t TEXT_SIZE = 1024; // bytes with the terminator
constexpr std::size_t LONGEST_FORMAT = 1024;

} // namespace

// Kor_ErrorValue --------------------------------------------------------------------------------------
Kor_ErrorValue::Kor_ErrorValue() noexcept : value(0), logMsg(nullptr) {}

Kor_ErrorValue::Kor_ErrorValue(const Kor_ErrorValue& other) noexcept
    : value(other.value), logMsg(duplicate(other.logMsg))
{
}

Kor_ErrorValue& Kor_ErrorValue::operator=(const Kor_ErrorValue& other) noexcept
{
    if (this == &other)
        return *this;
    ResetLogMsg();
    value = other.value;
    logMsg = duplicate(other.logMsg);
    return *this;
}

Kor_ErrorValue::~Kor_ErrorValue() { ResetLogMsg(); }

void Kor_ErrorValue::ResetLogMsg() noexcept { std::free(std::exchange(logMsg, nullptr)); }

// Kor_GError ------------------------------------------------------------------------------------------
const unsigned long Kor_GError::range_size = PACKAGE_RANGE;

Kor_GError::Kor_GError() noexcept = default;

// The slot goes with the member, and with it the errors of all threads.
Kor_GError::~Kor_GError() = default;

void Kor_GError::Set(unsigned long code) noexcept
{
    const KeptErrors kept;
    if (Kor_ErrorValue* const own = m_value.find_or_make())
        own->value = code;
}

unsigned long Kor_GError::Get() const noexcept
{
    const KeptErrors kept;
    const Kor_ErrorValue* const own = m_value.find();
    return own == nullptr ? 0 : own->value;
}

unsigned long Kor_GError::GetPackage() const noexcept { return Get() / range_size; }

void Kor_GError::SetLogMsg(const char* format, ...)
{
    const KeptErrors kept;
    constexpr int LINE_LONG_FORMAT = 114; // the lines that people know these two reports by
    constexpr int LINE_LONG_TEXT = 126;
    if (kor::win::is_longer(format, LONGEST_FORMAT))
        return report_bounds(LINE_LONG_FORMAT);
    char text[TEXT_SIZE];
    va_list args;
    va_start(args, format);
    const kor::win::FormatResult result = kor::win::format_text(text, TEXT_SIZE, format, args);
    va_end(args);
    if (result == kor::win::FormatResult::CUT)
        return report_bounds(LINE_LONG_TEXT);
    if (Kor_ErrorValue* const own = m_value.find_or_make())
    {
        own->ResetLogMsg();
        own->logMsg = duplicate(text);
    }
}

void Kor_GError::report_bounds(int line)
{
    KorGLog.StoreParams("Kor_Error", "Kor_GError::SetLogMsg", line, 0, KOR_PACKAGE_LIBRARY);
    KorGError.Log("Kor_Err::BOUNDS", Kor_Err::BOUNDS);
}

void Kor_GError::ResetLogMsg() noexcept
{
    const KeptErrors kept;
    if (Kor_ErrorValue* const own = m_value.find())
        own->ResetLogMsg();
}

void Kor_GError::Log(const char* name, unsigned long code)
{
    const KeptErrors kept;
    const int error = errno;
    const Kor_ErrorValue* const known = m_value.find();
    const char* const text = known == nullptr || known->logMsg == nullptr ? "" : known->logMsg;
    if (code == 0)
    {
        if (known != nullptr && known->value != 0)
            KorGLog.Log("Error %d detected. %s\n", static_cast<int>(known->value), text);
        else
            KorGLog.Log("Error occurred. %s\n", text);
        return;
    }
    if (code == static_cast<unsigned long>(error))
        KorGLog.Log("Errno %d [%s - %s] occurred. %s\n", error, name, std::strerror(error), text);
    else
        KorGLog.Log("Error %d [%s] occurred. %s\n", static_cast<int>(code), name, text);
    if (Kor_ErrorValue* const own = m_value.find_or_make())
    {
        own->value = code;
        own->ResetLogMsg();
    }
}
