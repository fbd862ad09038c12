// import_hook.h - puts a test's own function in the place of one that LUMlog.dll imports.

#ifndef KOR_TESTS_IMPORT_HOOK_H
#define KOR_TESTS_IMPORT_HOOK_H

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// The module whose imports are hooked.
inline HMODULE library_module() { return ::GetModuleHandleA("LUMlog.dll"); }

/// Points every import slot of `function` in `module` at `replacement` until destroyed. Slots are
/// found by function name alone, as the same call may come from one DLL or another.
///
/// Not seen: addresses that the module gets from GetProcAddress (FoundHook is for those), and calls that other
/// modules make on its behalf. Hooks of one function end in the reverse order of their making.
class ImportHook
{
public:
    ImportHook(HMODULE module, const char* function, void* replacement) : m_replacement(replacement)
    {
        auto* const base = reinterpret_cast<unsigned char*>(module);
        if (base == nullptr)
            return;
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
        const auto* const nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
        const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        if (directory.VirtualAddress == 0)
            return;
        for (auto* d = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress); d->Name != 0; ++d)
        {
            if (d->OriginalFirstThunk == 0)
                continue;
            auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->OriginalFirstThunk);
            auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->FirstThunk);
            for (; names->u1.AddressOfData != 0; ++names, ++slots)
            {
                if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                    continue;
                const auto* const by_name = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), function) == 0)
                    replace(reinterpret_cast<void**>(&slots->u1.Function));
            }
        }
    }
    explicit ImportHook(const char* function, void* replacement) : ImportHook(library_module(), function, replacement)
    {
    }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;
    ~ImportHook()
    {
        for (const Saved& saved : m_saved)
        {
            if (exchange(saved.slot, saved.original) != m_replacement)
            {
                std::fputs("import hooks ended out of order\n", stderr);
                std::abort();
            }
        }
    }

    /// A test that hooks nothing passes for the wrong reason: check this first.
    bool installed() const noexcept { return !m_saved.empty(); }

    /// What the slots held before.
    void* original() const noexcept { return m_saved.empty() ? nullptr : m_saved.front().original; }

private:
    struct Saved
    {
        void** slot;
        void* original;
    };

    void replace(void** slot) { m_saved.push_back({slot, exchange(slot, m_replacement)}); }

    static void* exchange(void** slot, void* value)
    {
        DWORD protection = 0;
        ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
        void* const before = ::InterlockedExchangePointer(slot, value);
        ::VirtualProtect(slot, sizeof *slot, protection, &protection);
        return before;
    }

    void* m_replacement;
    std::vector<Saved> m_saved;
};

/// The bare form of a function's type: result and arguments, without the attributes of its declaration.
template <class R, class... A>
struct HookSignature
{
};
template <class R, class... A>
HookSignature<R, A...> hook_signature_of(R (*)(A...));

/// Names an imported function for Hook, at namespace scope: KOR_IMPORT(ReportEventA);
#define KOR_IMPORT(name)                                            \
    struct name##Import                                             \
    {                                                               \
        using Signature = decltype(hook_signature_of(&::name));     \
        [[maybe_unused]] static constexpr const char* NAME = #name; \
    }

template <class Import, class Signature = typename Import::Signature>
class Hook;

/// An import hook that runs a callable, which may capture, and counts its calls:
///
///     Hook<ReportEventAImport> reports([&](HANDLE, WORD type, ...) -> BOOL { ...; return TRUE; });
///     ASSERT_TRUE(reports.installed());
///     ...
///     EXPECT_EQ(reports.calls(), 1);
///
/// Without a callable the calls are counted and passed on. Calls may come from any thread; the
/// callable must bear that.
template <class Import, class R, class... A>
class Hook<Import, HookSignature<R, A...>>
{
public:
    explicit Hook(std::function<R(A...)> replacement = nullptr)
        : m_outer(s_current), m_replacement(std::move(replacement)),
          m_hook(Import::NAME, reinterpret_cast<void*>(static_cast<R (*)(A...)>(&entry)))
    {
        // Nested hooks of one function share the entry; the innermost answers.
        m_original = m_outer != nullptr ? m_outer->m_original : reinterpret_cast<R (*)(A...)>(m_hook.original());
        s_current = this;
    }
    Hook(const Hook&) = delete;
    Hook& operator=(const Hook&) = delete;
    ~Hook() { s_current = m_outer; }

    bool installed() const noexcept { return m_hook.installed(); }
    int calls() const noexcept { return m_calls; }

    /// Calls the function that the hook replaced.
    R original(A... arguments) const { return m_original(arguments...); }

private:
    static R entry(A... arguments)
    {
        Hook* const hook = s_current;
        ++hook->m_calls;
        return hook->m_replacement ? hook->m_replacement(arguments...) : hook->m_original(arguments...);
    }

    static inline std::atomic<Hook*> s_current{nullptr};

    Hook* m_outer;
    std::function<R(A...)> m_replacement;
    std::atomic<int> m_calls{0};
    R (*m_original)(A...) = nullptr;
    ImportHook m_hook; // last: the first to go
};

/// The functions that the library is to find when it asks GetProcAddress. It keeps what it found, so they stay to the
/// end of the process.
class FoundFunctions
{
public:
    /// False when the library does not ask GetProcAddress for anything.
    static bool put(const char* name, void* function)
    {
        static ImportHook* const hook = new ImportHook("GetProcAddress", reinterpret_cast<void*>(&find));
        s_functions[name].own = function;
        return hook->installed();
    }

    /// What the library would have found.
    static void* real(const char* name) { return s_functions[name].real; }

private:
    struct Function
    {
        void* own;
        void* real;
    };

    static FARPROC WINAPI find(HMODULE module, LPCSTR name)
    {
        const FARPROC real = ::GetProcAddress(module, name);
        const auto entry = IS_INTRESOURCE(name) ? s_functions.end() : s_functions.find(name);
        if (entry == s_functions.end())
            return real;
        entry->second.real = reinterpret_cast<void*>(real);
        return reinterpret_cast<FARPROC>(entry->second.own);
    }

    static inline std::map<std::string, Function> s_functions;
};

template <class Import, class Signature = typename Import::Signature>
class FoundHook;

/// As Hook, for a function that the library does not import but finds by GetProcAddress, and then keeps. To be made
/// before the library first uses it; without one, once there was one, calls are passed on.
template <class Import, class R, class... A>
class FoundHook<Import, HookSignature<R, A...>>
{
public:
    explicit FoundHook(std::function<R(A...)> replacement)
        : m_outer(s_current), m_replacement(std::move(replacement)),
          m_installed(FoundFunctions::put(Import::NAME, reinterpret_cast<void*>(static_cast<R (*)(A...)>(&entry))))
    {
        s_current = this;
    }
    FoundHook(const FoundHook&) = delete;
    FoundHook& operator=(const FoundHook&) = delete;
    ~FoundHook() { s_current = m_outer; }

    bool installed() const noexcept { return m_installed; }
    int calls() const noexcept { return m_calls; }

private:
    static R entry(A... arguments)
    {
        FoundHook* const hook = s_current;
        if (hook == nullptr)
            return reinterpret_cast<R (*)(A...)>(FoundFunctions::real(Import::NAME))(arguments...);
        ++hook->m_calls;
        return hook->m_replacement(arguments...);
    }

    static inline std::atomic<FoundHook*> s_current{nullptr};

    FoundHook* m_outer;
    std::function<R(A...)> m_replacement;
    bool m_installed;
    std::atomic<int> m_calls{0};
};

#endif // KOR_TESTS_IMPORT_HOOK_H
