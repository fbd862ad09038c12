// named_event.h - signals between a test and its children.

#ifndef KOR_TESTS_NAMED_EVENT_H
#define KOR_TESTS_NAMED_EVENT_H

#include <windows.h>

#include <atomic>
#include <string>

/// A name for a kernel object or a file that no other test of the machine uses.
inline std::string unique_name(const std::string& prefix)
{
    static std::atomic<unsigned> number{0};
    return prefix + '-' + std::to_string(::GetCurrentProcessId()) + '-' + std::to_string(++number);
}

/// An event that every process with its name shares; once set it stays set until reset.
///
/// The test makes one with unique_name and hands the name to its child as an argument; the child
/// makes one of the same name.
class NamedEvent
{
public:
    explicit NamedEvent(const std::string& name) : m_handle(::CreateEventA(nullptr, TRUE, FALSE, name.c_str())) {}
    NamedEvent(const NamedEvent&) = delete;
    NamedEvent& operator=(const NamedEvent&) = delete;
    ~NamedEvent() { ::CloseHandle(m_handle); }

    void set() const noexcept { ::SetEvent(m_handle); }
    void reset() const noexcept { ::ResetEvent(m_handle); }

    /// False when the event was not set in time.
    bool wait(unsigned timeout_ms = 20000) const noexcept
    {
        return ::WaitForSingleObject(m_handle, timeout_ms) == WAIT_OBJECT_0;
    }

private:
    HANDLE m_handle;
};

#endif // KOR_TESTS_NAMED_EVENT_H
