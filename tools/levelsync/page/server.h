// server.h - the page over HTTP, for this machine alone and for who knows its address.

#ifndef LEVELSYNC_PAGE_SERVER_H
#define LEVELSYNC_PAGE_SERVER_H

#include <memory>
#include <string>

#include "api.h"

namespace levelsync
{
/// Serves from its making to its end, on threads of its own.
///
/// It listens on 127.0.0.1 and nowhere else. Whatever is not below the token in its address gets 404 and nothing more;
/// below it, a Host or an Origin that is not the server's own is refused, so that no other page can ask through a
/// browser. Requests are bounded in size and time, and so are connections in their number.
class PageServer
{
public:
    /// port 0: any that is free. Throws Failure where it cannot be listened on.
    PageServer(PageApi& api, int port);
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;
    ~PageServer();

    /// "http://127.0.0.1:49152/0123.../".
    const std::string& address() const noexcept;

private:
    class Work;

    const std::unique_ptr<Work> m_work;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_SERVER_H
