#include "stop.h"

#include <algorithm>

namespace levelsync
{
namespace
{
constexpr DWORD TIME_TO_STOP_MS = 20'000; // of the object's owner; the system may give it less
constexpr wchar_t WINDOW_CLASS[] = L"LevelSyncStop";

HANDLE stop_event = nullptr;
HANDLE stopped_event = nullptr;

/// Tells the owner and waits for it: when this returns the system ends the process, except after Ctrl-C.
void stop_and_wait() noexcept
{
    ::SetEvent(stop_event);
    ::WaitForSingleObject(stopped_event, TIME_TO_STOP_MS);
}

BOOL WINAPI handle_control(DWORD control)
{
    if (control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT)
        ::SetEvent(stop_event);
    else
        stop_and_wait();
    return TRUE;
}

/// The calls of user32 that a window needs. Loaded when first needed: it would make each start ten milliseconds longer.
struct WindowCalls
{
    decltype(&::RegisterClassW) register_class;
    decltype(&::CreateWindowExW) create_window;
    decltype(&::DefWindowProcW) default_procedure;
    decltype(&::GetMessageW) get_message;
    decltype(&::DispatchMessageW) dispatch_message;
    decltype(&::PostThreadMessageW) post_thread_message;
};
WindowCalls window_calls{};

template <class Function>
bool load(HMODULE library, const char* name, Function& function) noexcept
{
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
    return function != nullptr;
}

bool load_window_calls() noexcept
{
    const HMODULE library = ::LoadLibraryW(L"user32.dll");
    return library != nullptr && load(library, "RegisterClassW", window_calls.register_class) &&
           load(library, "CreateWindowExW", window_calls.create_window) &&
           load(library, "DefWindowProcW", window_calls.default_procedure) &&
           load(library, "GetMessageW", window_calls.get_message) &&
           load(library, "DispatchMessageW", window_calls.dispatch_message) &&
           load(library, "PostThreadMessageW", window_calls.post_thread_message);
}

LRESULT CALLBACK window_procedure(HWND window, UINT message, WPARAM first, LPARAM second)
{
    if (message == WM_QUERYENDSESSION)
        return TRUE;
    if (message != WM_ENDSESSION)
        return window_calls.default_procedure(window, message, first, second);
    if (first != 0)
        stop_and_wait();
    return 0;
}

/// A window that nobody sees. A program that has loaded user32, or has no console, hears of the end of a Windows session
/// in no other way.
DWORD WINAPI run_window(void*)
{
    WNDCLASSW description{};
    description.lpfnWndProc = &window_procedure;
    description.hInstance = ::GetModuleHandleW(nullptr);
    description.lpszClassName = WINDOW_CLASS;
    window_calls.register_class(&description);
    window_calls.create_window(
        0, WINDOW_CLASS, L"LevelSync", WS_OVERLAPPED, 0, 0, 0, 0, nullptr, nullptr, description.hInstance, nullptr);
    MSG message{};
    while (window_calls.get_message(&message, nullptr, 0, 0) > 0)
        window_calls.dispatch_message(&message);
    return 0;
}
} // namespace

StopSignal::StopSignal()
    : m_stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_stopped(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    stop_event = m_stop.get();
    stopped_event = m_stopped.get();
    // A caller may have switched Ctrl-C off for its children, which would leave this one without an end.
    ::SetConsoleCtrlHandler(nullptr, FALSE);
    ::SetConsoleCtrlHandler(&handle_control, TRUE);
    if (load_window_calls())
        m_window_thread.reset(::CreateThread(nullptr, 0, &run_window, nullptr, 0, &m_window_thread_id));
}

StopSignal::~StopSignal()
{
    // First: while a handler runs, the list of handlers may be locked.
    ::SetEvent(m_stopped.get());
    ::SetConsoleCtrlHandler(&handle_control, FALSE);
    if (!is_valid(m_window_thread))
        return;
    // The thread may not have a queue yet, and then loses the message: it ends with the process at the latest.
    constexpr DWORD TIME_TO_END_MS = 1'000;
    window_calls.post_thread_message(m_window_thread_id, WM_QUIT, 0, 0);
    ::WaitForSingleObject(m_window_thread.get(), TIME_TO_END_MS);
}

bool StopSignal::wait(std::int64_t milliseconds) const noexcept
{
    constexpr std::int64_t LONGEST_WAIT_MS = 86'400'000;
    const auto time = static_cast<DWORD>(std::clamp<std::int64_t>(milliseconds, 0, LONGEST_WAIT_MS));
    return ::WaitForSingleObject(m_stop.get(), time) == WAIT_OBJECT_0;
}
} // namespace levelsync
