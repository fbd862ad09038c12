#include "Kor/shared_conf.h"

#include <windows.h>

#include <atomic>
#include <cstdio>

#include "Kor/diagnostics.h"
#include "Kor/shared_name.h"
#include "core/change_count.h"
#include "win/clock.h"
#include "win/console.h"
#include "win/environment.h"
#include "win/shared_stamp.h"

namespace kor
{
namespace
{
// Beside the block, where its processes find it.
constexpr char GLOBAL_TURN_NAME[] = "Global\\SM_LOG_OBJ_NAME_12_0_PUBLISHER";
constexpr char LOCAL_TURN_NAME[] = "Local\\SM_LOG_OBJ_NAME_12_0_PUBLISHER";

/// Of the block that was attached last. A process that may not create global objects may still have joined a global
/// block, and then waits with the publishers of that one; global mutexes need no right.
std::atomic<const char*> turn_name{nullptr};

std::atomic<bool> block_is_kept{false};

// A creator fills its block within milliseconds; one that has not done so by then was killed.
constexpr ULONGLONG FILL_WAIT_MS = 500;

// Others change the stamp once in a millisecond at the most, unless they mean harm.
constexpr int MAX_STAMP_TRIES = 1'000;

const char* turn_name_of(const char* block_name) noexcept
{
    return block_name == LOCAL_BLOCK_NAME ? LOCAL_TURN_NAME : GLOBAL_TURN_NAME;
}
} // namespace

const char* fallback_name() noexcept { return shared_block_name == LOCAL_BLOCK_NAME ? GLOBAL_BLOCK_NAME : nullptr; }

Attachment attach_block()
{
    Attachment block;
    KOR_TRACE("AttachedSharedMemory\n");
    const char* const name = shared_block_name;
    const char* found = name;
    block.mapping = win::open_mapping(name);
    if (!block.mapping && fallback_name() != nullptr)
    {
        found = fallback_name();
        block.mapping = win::open_mapping(found);
    }
    const DWORD error = ::GetLastError();
    if (win::is_set("PRISMATE_LOG_INFO"))
        win::print_line(stdout, "file mapping name is %s\n", name == nullptr ? "empty" : name);
    bool created = false;
    if (!block.mapping)
    {
        if (error != ERROR_FILE_NOT_FOUND)
            win::print_line(stderr, "Failed in OpenFileMapping.error <%d>\n", static_cast<int>(error));
        found = name;
        block.mapping = win::create_mapping(name, sizeof(Kor_LogConf), created);
        if (!block.mapping)
            return block;
    }
    block.view = win::map_view(block.mapping, sizeof(Kor_LogConf));
    if (!block.view)
        return block;
    block.result = created ? ATTACH_CREATED : ATTACH_EXISTED;
    turn_name = turn_name_of(found);
    return block;
}

void keep(Attachment& attachment) noexcept
{
    static_cast<void>(attachment.mapping.release());
    static_cast<void>(attachment.view.release());
    block_is_kept = true;
}

bool is_kept() noexcept { return block_is_kept; }

bool wait_until_filled(const Kor_LogConf& block) noexcept
{
    const ULONGLONG end = ::GetTickCount64() + FILL_WAIT_MS;
    while (block.GetChangeCount() == 0)
    {
        if (::GetTickCount64() >= end)
            return false;
        ::Sleep(1);
    }
    return true;
}

std::uint64_t stamp_change(Kor_LogConf& block) noexcept
{
    std::uint64_t next = 0;
    for (int tries = 0; tries < MAX_STAMP_TRIES; ++tries)
    {
        const std::uint64_t present = block.GetChangeCount();
        next = core::stamp_above(win::milliseconds_since_1970(), present);
        if (win::replace_stamp(block.changeCount, present, next))
            return next;
    }
    block.SetChangeCount(next);
    return next;
}

PublisherTurn::PublisherTurn() noexcept : m_mutex(turn_name, MAX_WAIT_MS) {}

PublisherTurn::PublisherTurn(const char* block_name) noexcept : m_mutex(turn_name_of(block_name), MAX_WAIT_MS) {}
} // namespace kor
