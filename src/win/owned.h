// owned.h - sole owner of one system resource.

#ifndef KOR_WIN_OWNED_H
#define KOR_WIN_OWNED_H

#include <windows.h>

#include <utility>

namespace kor::win
{
/// Traits gives: Type; none(), the value that owns nothing; close(Type), which does not throw.
template <class Traits>
class Owned
{
public:
    using Type = typename Traits::Type;

    Owned() noexcept = default;
    explicit Owned(Type raw) noexcept : m_raw(raw) {}
    Owned(Owned&& from) noexcept : m_raw(from.release()) {}
    Owned& operator=(Owned&& from) noexcept
    {
        Owned(std::move(from)).swap(*this);
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    /// Keeps the thread's last error, so that a failure can still be reported after the clean-up.
    ~Owned()
    {
        if (m_raw == Traits::none())
            return;
        const DWORD kept = ::GetLastError();
        Traits::close(m_raw);
        ::SetLastError(kept);
    }

    Type get() const noexcept { return m_raw; }
    explicit operator bool() const noexcept { return m_raw != Traits::none(); }
    [[nodiscard]] Type release() noexcept { return std::exchange(m_raw, Traits::none()); }
    void swap(Owned& other) noexcept { std::swap(m_raw, other.m_raw); }

private:
    Type m_raw = Traits::none();
};

struct HandleTraits // sections, tokens, threads
{
    using Type = HANDLE;
    static Type none() noexcept { return nullptr; }
    static void close(Type handle) noexcept { ::CloseHandle(handle); }
};

struct FileTraits : HandleTraits
{
    static Type none() noexcept { return INVALID_HANDLE_VALUE; }
};

struct ViewTraits
{
    using Type = void*;
    static Type none() noexcept { return nullptr; }
    static void close(Type view) noexcept { ::UnmapViewOfFile(view); }
};

struct LocalMemoryTraits
{
    using Type = void*;
    static Type none() noexcept { return nullptr; }
    static void close(Type memory) noexcept { ::LocalFree(memory); }
};

struct PagesTraits
{
    using Type = void*;
    static Type none() noexcept { return nullptr; }
    static void close(Type pages) noexcept { ::VirtualFree(pages, 0, MEM_RELEASE); }
};

using OwnedHandle = Owned<HandleTraits>;
using OwnedFile = Owned<FileTraits>;
using OwnedView = Owned<ViewTraits>;
using OwnedLocalMemory = Owned<LocalMemoryTraits>;
using OwnedPages = Owned<PagesTraits>;
} // namespace kor::win

#endif // KOR_WIN_OWNED_H
