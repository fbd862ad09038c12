// http.h - questions to servers over HTTP, bounded in time and size.

#ifndef LEVELSYNC_SITE_HTTP_H
#define LEVELSYNC_SITE_HTTP_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "core/site_address.h"

namespace levelsync
{
struct HttpAnswer
{
    int status = 0;      ///< 0: there was no answer
    std::string body;    ///< as far as it was read
    std::string problem; ///< why there is no answer, or no whole one; empty: there is
    bool is_too_long = false;
};

/// Keeps connections open between questions. One thread at a time.
class HttpClient
{
public:
    /// Loads what it needs of the system; throws Failure where that is not there.
    HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;
    ~HttpClient();

    /// Asks, and reads at most so many bytes of the answer. Ends in time: a few seconds, however slow the other side is.
    HttpAnswer post(
        const kor::core::SiteEndpoint& to, const std::string& path, const std::string& body,
        const std::string& authorization, std::size_t most_bytes);

private:
    struct Calls;
    struct Session;
    std::unique_ptr<Session> m_session;
};
} // namespace levelsync

#endif // LEVELSYNC_SITE_HTTP_H
