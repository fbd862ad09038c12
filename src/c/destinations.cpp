// Destinations for C: a function of the program's in the place of an object.

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "c/c_texts.h"
#include "core/fixed_text.h"
#include "win/contained_call.h"
#include "win/owner_lock.h"

using kor::c::contained;
using kor::c::NarrowName;
using kor::win::OwnerLockGuard;

namespace
{
/// What a program's function has thrown or raised, on its way to the log.
class Failure : public std::exception
{
public:
    explicit Failure(const char* what) noexcept { kor::core::copy_cut(m_what, what); }
    const char* what() const noexcept override { return m_what; }

private:
    char m_what[256];
};

/// The thread that is inside of a program's function, 0 for none: the log lets one at a time in.
std::atomic<DWORD> caller{0};

lum_message message_of(Kor_LogMTVars& context, bool bare, const char* text, unsigned int length) noexcept
{
    constexpr unsigned int CUT = 0xFFFFFFFF; // such a message ends at its terminator
    lum_message message{};
    message.size = sizeof message;
    message.level = context.m_level;
    message.package = context.m_package;
    message.line = context.m_line;
    message.file = context.m_file;
    message.function = context.m_function == nullptr ? "" : context.m_function;
    message.headline = bare ? "" : context.AsStringFull(false);
    message.text = text;
    message.length = length == CUT ? std::strlen(text) : length;
    message.headline_length = std::strlen(message.headline);
    message.bare = bare ? 1 : 0;
    message.thread = context.m_thread_id;
    message.year = context.m_time.year;
    message.month = context.m_time.month;
    message.day = context.m_time.day;
    message.hour = context.m_time.hour;
    message.minute = context.m_time.minute;
    message.second = context.m_time.second;
    message.millisecond = context.m_time.milliseconds;
    const int minutes = context.m_zone_hours * 60 + context.m_zone_minutes;
    message.zone_minutes = static_cast<short>(context.m_zone_sign == '-' ? -minutes : minutes);
    return message;
}

/// One call of a program's function.
struct Call
{
    lum_receive receive;
    void* user;
    const lum_message* message;
    DWORD outer_caller;
    Call* outer;
    int result = 0;
    bool threw = false;
    Failure failure{"of a type that is not known"};

    /// Runs contained.
    static void run(void* argument)
    {
        auto& call = *static_cast<Call*>(argument);
        try
        {
            call.result = call.receive(call.user, call.message);
        }
        catch (const std::exception& error)
        {
            call.threw = true;
            call.failure = Failure(error.what());
        }
        catch (...)
        {
            call.threw = true;
        }
    }

    static void leave(void* argument);
};

// The innermost call of the thread that is the caller.
Call* current = nullptr;

void Call::leave(void* argument)
{
    const auto& call = *static_cast<const Call*>(argument);
    current = call.outer;
    caller = call.outer_caller;
}

class Receiver final : public Kor_LogDestBase
{
public:
    Receiver(lum_receive receive, void* user) noexcept : m_receive(receive), m_user(user) {}

    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override
    {
        if (m_ended)
            return 0;
        const lum_message message = message_of(*context.operator->(), bare, text, length);
        Call call{m_receive, m_user, &message, caller.exchange(::GetCurrentThreadId()), current};
        current = &call;
        const unsigned long code = kor_contained_call(&Call::run, &Call::leave, &call);
        Call::leave(&call);
        if (code != 0)
        {
            char what[32];
            std::snprintf(what, sizeof what, "0x%08lx", code);
            throw Failure(what);
        }
        if (call.threw)
            throw call.failure;
        return call.result;
    }

    /// From now on the function is not called any more.
    void end() noexcept { m_ended = true; }

private:
    lum_receive m_receive;
    void* m_user;
    std::atomic<bool> m_ended{false};
};
} // namespace

struct lum_destination
{
    std::unique_ptr<Kor_LogDestBase> target;
    Receiver* receiver; // the target where that is one, else null
};

namespace
{
using Handles = std::vector<std::unique_ptr<lum_destination>>;

// Never held while a log's lock is asked for: a destination may come here from under that one.
kor::win::OwnerLock lock;

/// What is registered, and what has ended but could not be taken off the log's list yet.
struct Known
{
    Handles in_use;
    Handles ended;
};

// Never destroyed: programs may end their destinations as late as they like.
Known* handles = nullptr;

/// To be called with the lock held.
Known& known()
{
    if (handles == nullptr)
        handles = new Known;
    return *handles;
}

/// The log's list must not shrink while it is gone through, so what ends inside of a destination stays in it for a
/// while, without being called.
void forget_ended()
{
    Handles ended;
    {
        const OwnerLockGuard guard(lock);
        if (caller == ::GetCurrentThreadId() || !guard.held())
            return;
        ended.swap(known().ended);
    }
    for (const auto& handle : ended)
        KorGLog.UnregisterLogDestination(handle->target.get());
}

lum_destination* add(std::unique_ptr<Kor_LogDestBase> target, Receiver* receiver)
{
    forget_ended();
    auto handle = std::make_unique<lum_destination>();
    handle->target = std::move(target);
    handle->receiver = receiver;
    lum_destination* const raw = handle.get();
    {
        const OwnerLockGuard guard(lock);
        known().ended.reserve(known().ended.size() + known().in_use.size() + 1); // so that ending one takes no memory
        known().in_use.push_back(std::move(handle));
    }
    KorGLog.RegisterLogDestination(raw->target.get());
    return raw;
}

/// Null when the handle is none, or has ended.
std::unique_ptr<lum_destination> take(const lum_destination* destination)
{
    const OwnerLockGuard guard(lock);
    Handles& in_use = known().in_use;
    const auto found =
        std::find_if(in_use.begin(), in_use.end(), [=](const auto& handle) { return handle.get() == destination; });
    if (found == in_use.end())
        return nullptr;
    std::unique_ptr<lum_destination> handle = std::move(*found);
    in_use.erase(found);
    return handle;
}
} // namespace

lum_destination* lum_add_destination(lum_receive receive, void* user)
{
    if (receive == nullptr)
        return nullptr;
    return contained(
        static_cast<lum_destination*>(nullptr),
        [=]
        {
            auto receiver = std::make_unique<Receiver>(receive, user);
            Receiver* const raw = receiver.get();
            return add(std::move(receiver), raw);
        });
}

lum_destination* lum_add_file_destination(const char* path)
{
    if (path == nullptr)
        return nullptr;
    return contained(
        static_cast<lum_destination*>(nullptr),
        [=]() -> lum_destination*
        {
            const NarrowName name(path);
            std::FILE* const file = std::fopen(name.get(), "at");
            if (file == nullptr)
                return nullptr;
            std::fclose(file);
            return add(std::make_unique<Kor_LogDestFile>(name.get()), nullptr);
        });
}

lum_destination* lum_add_debugger_destination(void)
{
    return contained(
        static_cast<lum_destination*>(nullptr), [] { return add(std::make_unique<Kor_LogDestDebug>(), nullptr); });
}

void lum_destination_failed(const char* why)
{
    if (caller != ::GetCurrentThreadId() || current == nullptr)
        return;
    current->threw = true;
    current->failure = Failure(why);
}

void lum_remove_destination(lum_destination* destination)
{
    contained(
        [=]
        {
            forget_ended();
            std::unique_ptr<lum_destination> handle = take(destination);
            if (!handle)
                return;
            if (handle->receiver != nullptr)
                handle->receiver->end();
            if (caller != ::GetCurrentThreadId())
            {
                KorGLog.UnregisterLogDestination(handle->target.get()); // waits for a call that is under way
                return;
            }
            const OwnerLockGuard guard(lock);
            known().ended.push_back(std::move(handle));
        });
}
