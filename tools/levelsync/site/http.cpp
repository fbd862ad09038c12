#include "site/http.h"

#include <windows.h>
#include <winhttp.h>

#include <utility>

#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr int RESOLVE_MS = 2'000;
constexpr int CONNECT_MS = 2'000;
constexpr int SEND_MS = 3'000;
constexpr int RECEIVE_MS = 4'000;
constexpr ULONGLONG WHOLE_MS = 8'000; // of an answer that comes in drops
constexpr DWORD PIECE = 1 << 16;

template <class Function>
void load(HMODULE library, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
    if (function == nullptr)
        throw Failure("The system's HTTP library lacks something: " + std::string(name) + ".", "");
}

/// What the library says of its own errors; their texts are in no table of the system.
std::string problem_text(DWORD error)
{
    switch (error)
    {
    case ERROR_WINHTTP_TIMEOUT:
        return "it does not answer in time";
    case ERROR_WINHTTP_NAME_NOT_RESOLVED:
        return "its name does not resolve";
    case ERROR_WINHTTP_CANNOT_CONNECT:
        return "nobody listens there";
    case ERROR_WINHTTP_CONNECTION_ERROR:
        return "the connection broke";
    case ERROR_WINHTTP_SECURE_FAILURE:
        return "its certificate is not trusted on this machine";
    case ERROR_WINHTTP_SECURE_CHANNEL_ERROR:
        return "no secure channel to it comes to be; perhaps its certificate is not trusted on this machine";
    case ERROR_WINHTTP_INVALID_SERVER_RESPONSE:
        return "it answers with something other than HTTP";
    default:
        return system_text(error);
    }
}
} // namespace

/// The calls of the library, which is loaded when first needed: it would make every other command start later.
struct HttpClient::Calls
{
    Calls()
    {
        const HMODULE library = ::LoadLibraryExW(L"winhttp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (library == nullptr)
            throw Failure("The system's HTTP library is not there: " + system_text(::GetLastError()) + ".", "");
        load(library, "WinHttpOpen", open);
        load(library, "WinHttpSetTimeouts", set_timeouts);
        load(library, "WinHttpConnect", connect);
        load(library, "WinHttpOpenRequest", open_request);
        load(library, "WinHttpSendRequest", send_request);
        load(library, "WinHttpReceiveResponse", receive_response);
        load(library, "WinHttpQueryHeaders", query_headers);
        load(library, "WinHttpReadData", read_data);
        load(library, "WinHttpSetOption", set_option);
        load(library, "WinHttpCloseHandle", close_handle);
    }

    decltype(&::WinHttpOpen) open = nullptr;
    decltype(&::WinHttpSetTimeouts) set_timeouts = nullptr;
    decltype(&::WinHttpConnect) connect = nullptr;
    decltype(&::WinHttpOpenRequest) open_request = nullptr;
    decltype(&::WinHttpSendRequest) send_request = nullptr;
    decltype(&::WinHttpReceiveResponse) receive_response = nullptr;
    decltype(&::WinHttpQueryHeaders) query_headers = nullptr;
    decltype(&::WinHttpReadData) read_data = nullptr;
    decltype(&::WinHttpSetOption) set_option = nullptr;
    decltype(&::WinHttpCloseHandle) close_handle = nullptr;
};

struct HttpClient::Session
{
    /// Closes with the library's own call.
    class Handle
    {
    public:
        Handle() = default;
        Handle(const Calls& calls, HINTERNET handle) noexcept : m_calls(&calls), m_handle(handle) {}
        Handle(Handle&& other) noexcept : m_calls(other.m_calls), m_handle(std::exchange(other.m_handle, nullptr)) {}
        Handle& operator=(Handle&& other) noexcept
        {
            std::swap(m_calls, other.m_calls);
            std::swap(m_handle, other.m_handle);
            return *this;
        }
        ~Handle()
        {
            if (m_handle != nullptr)
                m_calls->close_handle(m_handle);
        }
        HINTERNET get() const noexcept { return m_handle; }

    private:
        const Calls* m_calls = nullptr;
        HINTERNET m_handle = nullptr;
    };

    Session()
    {
        whole = Handle(
            calls,
            calls.open(L"LevelSync", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
        if (whole.get() == nullptr)
            throw Failure("The system's HTTP library does not start: " + system_text(::GetLastError()) + ".", "");
        calls.set_timeouts(whole.get(), RESOLVE_MS, CONNECT_MS, SEND_MS, RECEIVE_MS);
        // Until the head of an answer is there counts a time of its own, of a minute and more.
        DWORD time = RECEIVE_MS;
        calls.set_option(whole.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &time, sizeof time);
    }

    const Handle& connection(const kor::core::SiteEndpoint& to)
    {
        Handle& known = connections[to.text()];
        if (known.get() == nullptr)
            known = Handle(calls, calls.connect(whole.get(), wide(to.host).c_str(), to.port, 0));
        return known;
    }

    int status_of(HINTERNET request) const
    {
        DWORD status = 0;
        DWORD size = sizeof status;
        calls.query_headers(
            request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX, &status,
            &size, WINHTTP_NO_HEADER_INDEX);
        return static_cast<int>(status);
    }

    /// Reads on until the end, the limit, or the end of patience.
    void read_body(HINTERNET request, std::size_t most_bytes, HttpAnswer& answer) const
    {
        const ULONGLONG end = ::GetTickCount64() + WHOLE_MS;
        std::string piece(PIECE, '\0');
        for (;;)
        {
            DWORD count = 0;
            if (calls.read_data(request, piece.data(), PIECE, &count) == FALSE)
                answer.problem = problem_text(::GetLastError());
            else if (count == 0)
                return;
            else if (answer.body.size() + count > most_bytes)
                answer.is_too_long = true;
            else
                answer.body.append(piece.data(), count);
            if (answer.is_too_long)
                answer.problem = "its answer has more than " + std::to_string(most_bytes) + " bytes";
            else if (answer.problem.empty() && ::GetTickCount64() >= end)
                answer.problem = "its answer does not come to an end";
            if (!answer.problem.empty())
                return;
        }
    }

    Calls calls;
    Handle whole;
    std::map<std::string, Handle> connections;
};

HttpClient::HttpClient() : m_session(std::make_unique<Session>()) {}
HttpClient::~HttpClient() = default;

HttpAnswer HttpClient::post(
    const kor::core::SiteEndpoint& to, const std::string& path, const std::string& body,
    const std::string& authorization, std::size_t most_bytes)
{
    const Calls& calls = m_session->calls;
    const Session::Handle& connection = m_session->connection(to);
    HttpAnswer answer;
    const Session::Handle request(
        calls, connection.get() == nullptr
                   ? nullptr
                   : calls.open_request(
                         connection.get(), L"POST", wide(path).c_str(), nullptr, WINHTTP_NO_REFERER,
                         WINHTTP_DEFAULT_ACCEPT_TYPES, to.is_secure ? WINHTTP_FLAG_SECURE : 0));
    std::wstring headers = L"Content-Type: application/json\r\n";
    if (!authorization.empty())
        headers += L"Authorization: " + wide(authorization) + L"\r\n";
    // A redirection would take user and password elsewhere.
    DWORD never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    const auto size = static_cast<DWORD>(body.size());
    const bool is_asked =
        request.get() != nullptr &&
        calls.set_option(request.get(), WINHTTP_OPTION_REDIRECT_POLICY, &never, sizeof never) != FALSE &&
        calls.send_request(
            request.get(), headers.c_str(), static_cast<DWORD>(headers.size()), const_cast<char*>(body.data()), size,
            size, 0) != FALSE &&
        calls.receive_response(request.get(), nullptr) != FALSE;
    if (!is_asked)
    {
        answer.problem = problem_text(::GetLastError());
        return answer;
    }
    answer.status = m_session->status_of(request.get());
    m_session->read_body(request.get(), most_bytes, answer);
    return answer;
}
} // namespace levelsync
