// source.h - what stands behind the page: one machine, or whatever else can answer the same questions.

#ifndef LEVELSYNC_PAGE_SOURCE_H
#define LEVELSYNC_PAGE_SOURCE_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "filters.h"
#include "tool.h"

namespace levelsync
{
/// Whom a question, or a level, is about. What is not given stands for everybody.
struct PageSubject
{
    std::string client;
    std::string application;
    std::optional<std::uint32_t> session;
    std::vector<std::string> groups; ///< of a site, for a question alone: those of the machines that it is about

    Filters filters() const;
};

/// An override that somebody asks for.
struct PageRaise
{
    int package = 0;
    int level = 0;
    PageSubject whom;
    std::string length; ///< as --for takes it
    std::string reason; ///< may be empty
};

/// Which lines the page wants to see.
struct PageLines
{
    int package = 0;
    int level = 7;           ///< up to this one
    std::string client;      ///< empty: all
    std::uint64_t after = 0; ///< the number of the last that it has; 0: none
};

/// Whose turn it is to be called.
using PageTurn = std::unique_lock<std::mutex>;

/// Calls come one at a time, from any thread. Each throws Failure, with what to do next, for what cannot be answered or
/// done. The reports are what the page's script reads.
class PageSource
{
public:
    PageSource() = default;
    PageSource(const PageSource&) = delete;
    PageSource& operator=(const PageSource&) = delete;
    virtual ~PageSource() = default;

    /// Changes whenever state() may say something else; cheap.
    virtual std::string stamp() = 0;

    /// What the page shows, what is in force for whom, what is raised, and the last changes.
    virtual Json state(const PageSubject& whom) = 0;

    /// The level of one package, and why.
    virtual Json explain(int package, const PageSubject& whom) = 0;

    virtual Json processes() = 0;
    virtual Json lines(const PageLines& wanted) = 0;

    // What has to wait for others lets go of the turn meanwhile, and has it again at its end: questions are answered.
    virtual Json raise(const PageRaise& wanted, PageTurn& turn) = 0;
    virtual Json undo(long long change, PageTurn& turn) = 0;

    /// Called about once a second: takes back what is over.
    virtual void tick() = 0;

    /// Takes back whatever lasts as long as the page. Nothing can be raised any more.
    virtual void end(const std::string& why) = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_SOURCE_H
