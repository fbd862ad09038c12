// api.h - the questions that the page's script asks, whatever brings them here.

#ifndef LEVELSYNC_PAGE_API_H
#define LEVELSYNC_PAGE_API_H

#include <map>
#include <mutex>
#include <string>

#include "source.h"

namespace levelsync
{
struct PageRequest
{
    bool changes_something = false;            ///< POST
    std::string name;                          ///< "state"
    std::map<std::string, std::string> fields; ///< of the address
    std::string body;                          ///< JSON
};

struct PageAnswer
{
    int status = 200; ///< of HTTP
    Json report;      ///< of a failure "error" and "next", both whole sentences
};

/// A source for several threads at once.
class PageApi
{
public:
    explicit PageApi(PageSource& source) : m_source(source) {}

    /// Throws nothing.
    PageAnswer answer(const PageRequest& request) noexcept;

    /// For who uses what the source uses too, such as the console.
    PageTurn take_turn() { return PageTurn(m_turn); }

    void tick();
    void end(const std::string& why);

private:
    Json ask(const PageRequest& request);
    Json change(const PageRequest& request, PageTurn& turn);

    std::mutex m_turn;
    PageSource& m_source;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_API_H
