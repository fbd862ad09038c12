// LUMlogWatch --register and --unregister with a registry that refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "import_hook.h"
#include "watch/commands.h"

namespace
{
using ::testing::HasSubstr;

int calls = 0;
LSTATUS answer = ERROR_SUCCESS;

LSTATUS WINAPI create_key(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, HKEY* key, DWORD*)
{
    ++calls;
    *key = nullptr;
    return answer;
}

LSTATUS WINAPI set_value(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD)
{
    ++calls;
    return answer;
}

LSTATUS WINAPI delete_key(HKEY, LPCWSTR, REGSAM, DWORD)
{
    ++calls;
    return answer;
}

/// A call of the registry that answers so, in this program.
class Registry
{
public:
    template <class Function>
    Registry(const char* function, Function* replacement, LSTATUS result)
        : m_hook(::GetModuleHandleA(nullptr), function, reinterpret_cast<void*>(replacement))
    {
        EXPECT_TRUE(m_hook.installed());
        calls = 0;
        answer = result;
        ::testing::internal::CaptureStderr();
    }
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;
    ~Registry() { EXPECT_EQ(calls, 1); }

    static std::string said() { return ::testing::internal::GetCapturedStderr(); }

private:
    ImportHook m_hook;
};

constexpr char ADMINISTRATOR[] =
    "(5). It takes an administrator, as the settings are the machine's: HKEY_LOCAL_MACHINE.\n";

TEST(WatchRegistry, ThatRefusesAKeyTakesAnAdministrator)
{
    const Registry registry("RegCreateKeyExW", &create_key, ERROR_ACCESS_DENIED);
    EXPECT_EQ(lumlogwatch::have_registered("watch_refused.exe", "C:\\dumps"), 1);
    const std::string said = Registry::said();
    EXPECT_THAT(said, ::testing::StartsWith("The program is not registered: "));
    EXPECT_THAT(said, ::testing::EndsWith(ADMINISTRATOR));
}

TEST(WatchRegistry, ThatRefusesToDeleteTakesAnAdministrator)
{
    const Registry registry("RegDeleteKeyExW", &delete_key, ERROR_ACCESS_DENIED);
    EXPECT_EQ(lumlogwatch::have_unregistered("watch_refused.exe"), 1);
    const std::string said = Registry::said();
    EXPECT_THAT(said, ::testing::StartsWith("The program is registered as it was: "));
    EXPECT_THAT(said, ::testing::EndsWith(ADMINISTRATOR));
}

TEST(WatchRegistry, ThatCannotTakeAValueIsTold)
{
    const Registry registry("RegSetValueExW", &set_value, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(lumlogwatch::have_registered("watch_refused.exe", "C:\\dumps"), 1);
    const std::string said = Registry::said();
    EXPECT_THAT(said, HasSubstr("(8).\n"));
    EXPECT_EQ(said.find("administrator"), std::string::npos);
    EXPECT_EQ(lumlogwatch::have_unregistered("watch_refused.exe"), 0); // the key was made
}

TEST(WatchRegistry, WithoutTheProgramHasNothingToBeTakenBack)
{
    const Registry registry("RegDeleteKeyExW", &delete_key, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(lumlogwatch::have_unregistered("watch_refused.exe"), 0);
    EXPECT_EQ(Registry::said(), "");
}
} // namespace
