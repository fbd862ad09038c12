// main.cpp - LevelSync as it is built, on a machine that refuses what the variable LEVELSYNC_FAULT names.

// In front of windows.h, which else brings the older one.
#include <winsock2.h>

#include <windows.h>

#include <shellapi.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "import_hook.h"

int wmain(int count, wchar_t** values);

namespace
{
std::wstring fault()
{
    wchar_t value[64] = {};
    ::GetEnvironmentVariableW(L"LEVELSYNC_FAULT", value, 64);
    return value;
}

bool ends_with(const std::wstring& text, const std::wstring& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The system's own functions. Calls by name come here once the slots lead here.
decltype(&::CreateFileW) real_create_file = nullptr;
decltype(&::MoveFileExW) real_move_file = nullptr;
decltype(&::GetProcAddress) real_get_proc_address = nullptr;
decltype(&::GetTickCount64) real_get_tick_count = nullptr;

template <class Function>
void find_real(const char* name, Function& function, const wchar_t* library = L"kernel32.dll")
{
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(library), name)));
}

// A fault is "WHAT NAME": WHAT is refused for files of that name.
bool is_refused(const wchar_t* what, LPCWSTR path)
{
    const std::wstring named = fault();
    const std::wstring word = std::wstring(what) + L' ';
    return named.compare(0, word.size(), word) == 0 && ends_with(path, L'\\' + named.substr(word.size()));
}

/// As a kill at that moment: nothing is left to be done.
void die() { ::TerminateProcess(::GetCurrentProcess(), 0xDEAD); }

HANDLE WINAPI open_file(
    LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags, HANDLE pattern)
{
    const bool writes = (access & (GENERIC_WRITE | FILE_APPEND_DATA)) != 0;
    static int notes = 0;
    if (ends_with(path, L"\\logger.history") && writes && ++notes == 2 && fault() == L"dies behind the file")
        die();
    if (is_refused(writes ? L"write" : L"read", path))
    {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    if (writes && is_refused(L"full", path))
    {
        ::SetLastError(ERROR_DISK_FULL);
        return INVALID_HANDLE_VALUE;
    }
    return real_create_file(path, access, share, security, how, flags, pattern);
}

BOOL WINAPI move_file(LPCWSTR from, LPCWSTR to, DWORD flags)
{
    if (fault() == L"dies before the file")
        die();
    if (!is_refused(L"move", to))
        return real_move_file(from, to, flags);
    ::SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
}

decltype(&::accept) real_accept = nullptr;

/// For "reset": the first connection is gone again when it is to be accepted.
SOCKET WSAAPI accept_connection(SOCKET listener, sockaddr* address, int* size)
{
    static int accepted = 0;
    const SOCKET connection = real_accept(listener, address, size);
    if (fault() != L"reset" || connection == INVALID_SOCKET || accepted++ > 0)
        return connection;
    ::closesocket(connection);
    ::WSASetLastError(WSAECONNRESET);
    return INVALID_SOCKET;
}

/// For "hurry" a clock that runs a hundred times as fast.
ULONGLONG WINAPI tick_count()
{
    constexpr ULONGLONG TIMES = 100;
    return real_get_tick_count() * (fault() == L"hurry" ? TIMES : 1);
}

HANDLE WINAPI open_mapping(DWORD access, BOOL inherit, LPCSTR name)
{
    const bool writes = (access & FILE_MAP_WRITE) != 0;
    if (fault() != L"block" && !(writes && fault() == L"write-block"))
        return ::OpenFileMappingA(access, inherit, name);
    ::SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

HANDLE WINAPI
create_mapping(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD high, DWORD low, LPCSTR name)
{
    if (fault() != L"block" && fault() != L"write-block")
        return ::CreateFileMappingA(file, security, protection, high, low, name);
    ::SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

// "session NAME" is a machine with windows: the event NAME-stays asks whether the Windows session may end, and then says
// that it does not; NAME-ends says that it does. NAME-done answers each.
class WindowsSession
{
public:
    static WNDPROC procedure;

    static ATOM WINAPI register_class(const WNDCLASSW* description)
    {
        procedure = description->lpfnWndProc;
        return 1;
    }

    static HWND WINAPI create_window(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID)
    {
        return window();
    }

    static LRESULT WINAPI default_procedure(HWND, UINT, WPARAM, LPARAM) { return 0; }

    static BOOL WINAPI get_message(LPMSG message, HWND, UINT, UINT)
    {
        constexpr DWORD PATIENCE_MS = 60000;
        const HANDLE any[] = {event(L"-stays"), event(L"-ends"), over()};
        const DWORD which = ::WaitForMultipleObjects(3, any, FALSE, PATIENCE_MS);
        *message = {};
        message->message = WM_ENDSESSION;
        message->wParam = which == WAIT_OBJECT_0 + 1 ? TRUE : FALSE;
        return which <= WAIT_OBJECT_0 + 1 ? TRUE : FALSE;
    }

    static LRESULT WINAPI dispatch_message(const MSG* message)
    {
        ::ResetEvent(event(message->wParam != FALSE ? L"-ends" : L"-stays"));
        if (procedure(window(), WM_QUERYENDSESSION, 0, 0) == TRUE)
            procedure(window(), message->message, message->wParam, 0);
        ::SetEvent(event(L"-done"));
        return 0;
    }

    static BOOL WINAPI post_thread_message(DWORD, UINT, WPARAM, LPARAM) { return ::SetEvent(over()); }

    static FARPROC WINAPI find(HMODULE module, LPCSTR name)
    {
        const std::string wanted = IS_INTRESOURCE(name) ? std::string() : name;
        for (const auto& [known, function] :
             {std::pair<const char*, void*>{"RegisterClassW", reinterpret_cast<void*>(&register_class)},
              {"CreateWindowExW", reinterpret_cast<void*>(&create_window)},
              {"DefWindowProcW", reinterpret_cast<void*>(&default_procedure)},
              {"GetMessageW", reinterpret_cast<void*>(&get_message)},
              {"DispatchMessageW", reinterpret_cast<void*>(&dispatch_message)},
              {"PostThreadMessageW", reinterpret_cast<void*>(&post_thread_message)}})
            if (wanted == known && fault().compare(0, 8, L"session ") == 0)
                return reinterpret_cast<FARPROC>(function);
        return real_get_proc_address(module, name);
    }

private:
    static HWND window() { return reinterpret_cast<HWND>(static_cast<std::intptr_t>(1)); }

    static HANDLE event(const wchar_t* end)
    {
        // Kept to the end of the process, which is soon.
        static std::map<std::wstring, HANDLE> events;
        HANDLE& kept = events[end];
        if (kept == nullptr)
            kept = ::CreateEventW(nullptr, TRUE, FALSE, (fault().substr(8) + end).c_str());
        return kept;
    }

    static HANDLE over()
    {
        static const HANDLE kept = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        return kept;
    }
};
WNDPROC WindowsSession::procedure = nullptr;
} // namespace

int main()
{
    find_real("CreateFileW", real_create_file);
    find_real("MoveFileExW", real_move_file);
    find_real("GetProcAddress", real_get_proc_address);
    find_real("GetTickCount64", real_get_tick_count);
    find_real("accept", real_accept, L"ws2_32.dll");
    const HMODULE self = ::GetModuleHandleW(nullptr);
    const ImportHook files(self, "CreateFileW", reinterpret_cast<void*>(&open_file));
    const ImportHook moves(self, "MoveFileExW", reinterpret_cast<void*>(&move_file));
    const ImportHook found(self, "GetProcAddress", reinterpret_cast<void*>(&WindowsSession::find));
    const ImportHook clock(self, "GetTickCount64", reinterpret_cast<void*>(&tick_count));
    const ImportHook connections(self, "accept", reinterpret_cast<void*>(&accept_connection));
    const ImportHook mappings("OpenFileMappingA", reinterpret_cast<void*>(&open_mapping));
    const ImportHook new_mappings("CreateFileMappingA", reinterpret_cast<void*>(&create_mapping));
    if (!files.installed() || !moves.installed() || !found.installed() || !clock.installed() || !mappings.installed() ||
        !new_mappings.installed() || !connections.installed())
        return 99;
    int count = 0;
    wchar_t** const values = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    return wmain(count, values);
}
