#include "server.h"

// A browser sends lines of a few hundred bytes, but for the cookies that other servers of this machine have set. Ranges are
// matched by an expression that takes a piece of the stack for each character: from 3,500 on a megabyte was too little.
#define CPPHTTPLIB_HEADER_MAX_LENGTH 1500
#define CPPHTTPLIB_REQUEST_URI_MAX_LENGTH 4096
#define CPPHTTPLIB_IDLE_INTERVAL_USECOND 250000
#include <httplib.h>

// Needs the types of windows.h.
#include <ntsecapi.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "failure.h"

namespace levelsync
{
namespace
{
constexpr char HOST[] = "127.0.0.1";
constexpr std::size_t TOKEN_BYTES = 16;
constexpr std::size_t LONGEST_BODY = 4'096;     // bytes; a raise has a few hundred
constexpr std::size_t LONGEST_REQUEST = 24'576; // bytes, with all headers
constexpr std::chrono::seconds TIME_FOR_REQUEST{5};
constexpr time_t TIMEOUT_S = 2; // without a byte
constexpr DWORD PAUSE_MS = 50;  // while the port cannot be had again
constexpr std::size_t THREADS = 8;
constexpr std::size_t MOST_CONNECTIONS = 16; // a browser has six at most; further ones wait in the system

constexpr char POLICY[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// Loaded here and not with the program: no other command needs it.
class SocketLibrary
{
public:
    SocketLibrary()
    {
        WSADATA data{};
        const int error = ::WSAStartup(MAKEWORD(2, 2), &data);
        if (error != 0)
            throw Failure(
                "The socket library does not start: " + system_text(static_cast<unsigned long>(error)) + ".",
                "Without it there is no page. All else LevelSync does at the command line.");
    }
    SocketLibrary(const SocketLibrary&) = delete;
    SocketLibrary& operator=(const SocketLibrary&) = delete;
    ~SocketLibrary() { ::WSACleanup(); }
};

std::string make_token()
{
    unsigned char bytes[TOKEN_BYTES];
    if (::RtlGenRandom(bytes, sizeof bytes) == FALSE)
        throw Failure(
            "The system has no random numbers for the page's address.", "Without them there is no page. Try again.");
    std::string text;
    for (const unsigned char byte : bytes)
    {
        constexpr char DIGITS[] = "0123456789abcdef";
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 0x0F];
    }
    return text;
}

/// Takes the same time wherever the two differ.
bool is_same(std::string_view given, std::string_view token) noexcept
{
    int difference = given.size() == token.size() ? 0 : 1;
    for (std::size_t i = 0; i < token.size(); ++i)
        difference |= (i < given.size() ? given[i] : '\0') ^ token[i];
    return difference == 0;
}

/// A connection that gives no more than a request may have, and not for longer than it may take.
class BoundedStream final : public httplib::Stream
{
public:
    explicit BoundedStream(httplib::Stream& stream) : m_stream(stream) {}

    bool is_readable() const override { return m_stream.is_readable(); }
    bool is_writable() const override { return m_stream.is_writable(); }

    ssize_t read(char* to, std::size_t size) override
    {
        if (m_left == 0 || std::chrono::steady_clock::now() >= m_end)
            return -1;
        const ssize_t count = m_stream.read(to, std::min(size, m_left));
        m_left -= count > 0 ? static_cast<std::size_t>(count) : 0;
        return count;
    }

    ssize_t write(const char* from, std::size_t size) override { return m_stream.write(from, size); }
    void get_remote_ip_and_port(std::string& ip, int& port) const override
    {
        m_stream.get_remote_ip_and_port(ip, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override { m_stream.get_local_ip_and_port(ip, port); }
    socket_t socket() const override { return m_stream.socket(); }

private:
    httplib::Stream& m_stream;
    std::size_t m_left = LONGEST_REQUEST;
    const std::chrono::steady_clock::time_point m_end = std::chrono::steady_clock::now() + TIME_FOR_REQUEST;
};

class BoundedServer final : public httplib::Server
{
private:
    bool process_and_close_socket(socket_t socket) override
    {
        // One request each: no thread waits for what a connection may bring later.
        const bool is_done = httplib::detail::process_server_socket(
            svr_sock_, socket, 1, TIMEOUT_S, TIMEOUT_S, 0, TIMEOUT_S, 0,
            [this](httplib::Stream& stream, bool is_last, bool& is_closed)
            {
                BoundedStream bounded(stream);
                return process_request(bounded, is_last, is_closed, nullptr);
            });
        httplib::detail::shutdown_socket(socket);
        httplib::detail::close_socket(socket);
        return is_done;
    }
};

/// Where there are as many connections as there may be, the next is accepted when one of them ends.
class BoundedQueue final : public httplib::TaskQueue
{
public:
    void enqueue(std::function<void()> job) override
    {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_has_room.wait(lock, [this] { return m_count < MOST_CONNECTIONS; });
            ++m_count;
        }
        m_pool.enqueue(
            [this, job = std::move(job)]
            {
                job();
                const std::lock_guard<std::mutex> lock(m_mutex);
                --m_count;
                m_has_room.notify_one();
            });
    }

    void shutdown() override { m_pool.shutdown(); }

private:
    std::mutex m_mutex;
    std::condition_variable m_has_room;
    std::size_t m_count = 0;
    httplib::ThreadPool m_pool{THREADS};
};

struct PageFile
{
    const char* name;
    const wchar_t* resource;
    const char* type;
};

constexpr PageFile FILES[] = {
    {"", L"PAGE_HTML", "text/html; charset=utf-8"},
    {"page.css", L"PAGE_CSS", "text/css; charset=utf-8"},
    {"page.js", L"PAGE_JS", "text/javascript; charset=utf-8"},
    {"page.svg", L"PAGE_SVG", "image/svg+xml"}};

/// In the program itself.
std::string_view content_of(const PageFile& file)
{
    const HMODULE program = ::GetModuleHandleW(nullptr);
    const HRSRC found = ::FindResourceW(program, file.resource, MAKEINTRESOURCEW(10)); // raw data
    const HGLOBAL loaded = found == nullptr ? nullptr : ::LoadResource(program, found);
    if (loaded == nullptr)
        return {};
    return {static_cast<const char*>(::LockResource(loaded)), ::SizeofResource(program, found)};
}

void say(httplib::Response& response, int status, const std::string& sentence)
{
    response.status = status;
    response.set_content(sentence + '\n', "text/plain; charset=utf-8");
}
} // namespace

class PageServer::Work
{
public:
    Work(PageApi& api, int port) : m_api(api), m_token(make_token())
    {
        m_server.set_address_family(AF_INET);
        m_server.set_read_timeout(TIMEOUT_S);
        m_server.set_write_timeout(TIMEOUT_S);
        m_server.set_payload_max_length(LONGEST_BODY);
        m_server.new_task_queue = [] { return new BoundedQueue; }; // which the server deletes
        // Nobody else may listen on the same port.
        m_server.set_socket_options(
            [](socket_t socket)
            {
                const int yes = 1;
                ::setsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&yes), sizeof yes);
            });
        m_server.set_default_headers(
            {{"Content-Security-Policy", POLICY},
             {"X-Content-Type-Options", "nosniff"},
             {"X-Frame-Options", "DENY"},
             {"Referrer-Policy", "no-referrer"},
             {"Cross-Origin-Opener-Policy", "same-origin"},
             {"Cross-Origin-Resource-Policy", "same-origin"},
             {"Cache-Control", "no-store"}});
        m_server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response)
                                         { return route(request, response); });
        m_server.Post(
            ".*",
            [this](const httplib::Request& request, httplib::Response& response) { answer(request, response, true); });
        listen(port);
    }

    ~Work()
    {
        m_is_stopping = true;
        // Before it runs, there is nothing that a stop would reach.
        while (!m_has_ended && !m_server.is_running())
            ::Sleep(1);
        m_server.stop();
        m_thread.join();
    }

    const std::string& address() const noexcept { return m_address; }

private:
    using Routing = httplib::Server::HandlerResponse;

    void listen(int port)
    {
        if (port == 0)
            port = m_server.bind_to_any_port(HOST);
        else if (!m_server.bind_to_port(HOST, port))
            port = -1;
        if (port <= 0)
            throw Failure(
                std::string("No page can be served on ") + HOST + ": " +
                    system_text(static_cast<unsigned long>(::WSAGetLastError())) + '.',
                "Choose another port with --port, or leave it out: then one is taken that is free.");
        m_host = std::string(HOST) + ':' + std::to_string(port);
        m_address = "http://" + m_host + '/' + m_token + '/';
        m_thread = std::thread([this, port] { serve(port); });
    }

    /// A connection that is gone before it is accepted ends the listening. Then it begins again.
    void serve(int port)
    {
        while (!m_server.listen_after_bind() && !m_is_stopping)
            while (!m_server.bind_to_port(HOST, port) && !m_is_stopping)
                ::Sleep(PAUSE_MS);
        m_has_ended = true;
    }

    /// What stands behind "/TOKEN/"; false for any other address.
    bool find_name(const httplib::Request& request, std::string& name) const
    {
        const std::string& path = request.path;
        const std::size_t end = std::min(path.find('/', 1), path.size());
        const std::string_view given = path.empty() ? std::string_view() : std::string_view(path).substr(1, end - 1);
        if (!is_same(given, m_token) || end == path.size())
            return false;
        name = path.substr(end + 1);
        return true;
    }

    /// A page of another server makes a browser send its own Host or Origin.
    bool is_own(const httplib::Request& request) const
    {
        const bool has_origin = request.has_header("Origin");
        return request.get_header_value_count("Host") == 1 && request.get_header_value("Host") == m_host &&
               (!has_origin || (request.get_header_value_count("Origin") == 1 &&
                                request.get_header_value("Origin") == "http://" + m_host));
    }

    /// Everything but the answer to a change, whose body is read first.
    Routing route(const httplib::Request& request, httplib::Response& response)
    {
        std::string name;
        if (!find_name(request, name))
        {
            response.status = 404;
            return Routing::Handled;
        }
        if (!is_own(request))
        {
            say(response, 403, "This page answers to itself alone.");
            return Routing::Handled;
        }
        if (request.method == "POST")
            return check_post(request, response) ? Routing::Unhandled : Routing::Handled;
        if (request.method != "GET")
        {
            response.set_header("Allow", "GET, POST");
            say(response, 405, "There is nothing but GET and POST here.");
            return Routing::Handled;
        }
        const auto file = std::find_if(
            std::begin(FILES), std::end(FILES), [&name](const PageFile& known) { return known.name == name; });
        if (file == std::end(FILES))
        {
            answer(request, response, false);
            return Routing::Handled;
        }
        const std::string_view content = content_of(*file);
        response.set_content(content.data(), content.size(), file->type);
        return Routing::Handled;
    }

    /// False where the request is refused before its body is read.
    static bool check_post(const httplib::Request& request, httplib::Response& response)
    {
        if (request.get_header_value("Content-Type") != "application/json")
            say(response, 415, "Changes are asked for in JSON.");
        else if (request.has_header("Transfer-Encoding") || request.get_header_value_count("Content-Length") != 1)
            say(response, 411, "A change says its length.");
        else if (request.get_header_value<std::uint64_t>("Content-Length") > LONGEST_BODY)
            say(response, 413, "A change has " + std::to_string(LONGEST_BODY) + " bytes at most.");
        else
            return true;
        return false;
    }

    void answer(const httplib::Request& request, httplib::Response& response, bool changes_something)
    {
        constexpr std::string_view BELOW = "api/";
        std::string name;
        find_name(request, name);
        if (name.compare(0, BELOW.size(), BELOW) != 0)
        {
            response.status = 404;
            return;
        }
        PageRequest asked;
        asked.changes_something = changes_something;
        asked.name = name.substr(BELOW.size());
        for (const auto& [field, value] : request.params)
            asked.fields[field] = value;
        asked.body = request.body;
        const PageAnswer answer = m_api.answer(asked);
        response.status = answer.status;
        response.set_content(
            answer.report.dump(-1, ' ', false, Json::error_handler_t::replace), "application/json; charset=utf-8");
    }

    PageApi& m_api;
    const SocketLibrary m_sockets;
    const std::string m_token;
    std::string m_host;
    std::string m_address;
    BoundedServer m_server;
    std::atomic<bool> m_is_stopping{false};
    std::atomic<bool> m_has_ended{false};
    std::thread m_thread;
};

PageServer::PageServer(PageApi& api, int port) : m_work(std::make_unique<Work>(api, port)) {}
PageServer::~PageServer() = default;

const std::string& PageServer::address() const noexcept { return m_work->address(); }
} // namespace levelsync
