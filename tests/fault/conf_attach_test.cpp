// conf_attach_test.cpp - attaching the shared block when Windows refuses a step of it. Every call that could
// reach the machine's own block is answered here, so these tests may run beside any other.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "child.h"
#include "environment.h"
#include "import_hook.h"
#include "log_lines.h"
#include "temp_directory.h"

KOR_IMPORT(OpenFileMappingA);
KOR_IMPORT(CreateFileMappingA);
KOR_IMPORT(MapViewOfFile);
KOR_IMPORT(CloseHandle);
KOR_IMPORT(LocalAlloc);
KOR_IMPORT(InitializeSecurityDescriptor);
KOR_IMPORT(SetSecurityDescriptorDacl);
KOR_IMPORT(EqualSid);
KOR_IMPORT(GetTokenInformation);
KOR_IMPORT(OpenProcessToken);
KOR_IMPORT(LookupPrivilegeValueA);
KOR_IMPORT(PrivilegeCheck);
KOR_IMPORT(VirtualQuery);
KOR_IMPORT(malloc);

namespace
{
constexpr DWORD BLOCK_SIZE = 4383776;
constexpr char GLOBAL_NAME[] = "Global\\SM_LOG_OBJ_NAME_12_0";
constexpr char LOCAL_NAME[] = "Local\\SM_LOG_OBJ_NAME_12_0";

using Names = std::vector<std::string>;

HANDLE unnamed_mapping(DWORD size = BLOCK_SIZE)
{
    return ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, nullptr);
}

/// What the hooked calls answer, and what they were asked. Mappings that are "created" have no name.
struct Windows
{
    // Answers. An error of 0 is success.
    DWORD open_error = ERROR_FILE_NOT_FOUND;
    DWORD open_error_of_second = 0; ///< for the second attempt, when it differs
    DWORD create_error = 0;
    DWORD error_after_creation = 0;
    DWORD map_error = 0;

    // Questions.
    Names opened;
    DWORD open_access = 0;
    BOOL open_inherit = TRUE;
    int creations = 0;
    HANDLE create_file = nullptr;
    DWORD create_protection = 0, create_high = 0, create_low = 0;
    std::string create_name;
    BOOL create_inherits = FALSE;
    bool create_has_descriptor = false, create_dacl_present = false, create_dacl_is_null = false;
    HANDLE mapping = nullptr;           ///< the last one handed out
    const Kor_LogConf* block = nullptr; ///< what was created, in a view of the test's own
    HANDLE mapped = nullptr;
    DWORD map_access = 0;
    DWORD map_high = 1, map_low = 1;
    SIZE_T map_size = 1;
    int maps = 0;
    int mapping_closed = 0;

    Hook<OpenFileMappingAImport> open{
        [this](DWORD access, BOOL inherit, LPCSTR name) -> HANDLE
        {
            opened.emplace_back(name);
            open_access = access;
            open_inherit = inherit;
            const DWORD error = opened.size() > 1 && open_error_of_second != 0 ? open_error_of_second : open_error;
            if (error == 0 || error == SUCCEED)
                return mapping = unnamed_mapping();
            ::SetLastError(error);
            return nullptr;
        }};
    Hook<CreateFileMappingAImport> create{
        [this](HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protection, DWORD high, DWORD low, LPCSTR name)
            -> HANDLE
        {
            ++creations;
            create_file = file;
            create_protection = protection;
            create_high = high;
            create_low = low;
            create_name = name;
            if (attributes != nullptr)
            {
                create_inherits = attributes->bInheritHandle;
                create_has_descriptor = attributes->lpSecurityDescriptor != nullptr;
                BOOL present = FALSE, defaulted = FALSE;
                ACL dummy{};
                PACL dacl = &dummy;
                if (create_has_descriptor &&
                    ::GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &dacl, &defaulted))
                {
                    create_dacl_present = present != FALSE;
                    create_dacl_is_null = dacl == nullptr;
                }
            }
            if (create_error != 0)
            {
                ::SetLastError(create_error);
                return nullptr;
            }
            mapping = unnamed_mapping();
            block = static_cast<const Kor_LogConf*>(::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
            ::SetLastError(error_after_creation);
            return mapping;
        }};
    Hook<MapViewOfFileImport> map{
        [this](HANDLE handle, DWORD access, DWORD high, DWORD low, SIZE_T size) -> LPVOID
        {
            ++maps;
            mapped = handle;
            map_access = access;
            map_high = high;
            map_low = low;
            map_size = size;
            if (map_error != 0)
            {
                ::SetLastError(map_error);
                return nullptr;
            }
            return ::MapViewOfFile(handle, access, high, low, size);
        }};
    Hook<CloseHandleImport> close{
        [this](HANDLE handle) -> BOOL
        {
            if (handle == mapping && handle != nullptr)
                ++mapping_closed;
            return ::CloseHandle(handle);
        }};

    static constexpr DWORD SUCCEED = 0xFFFFFFFF;

    bool installed() const { return open.installed() && create.installed() && map.installed() && close.installed(); }
};

struct Attached
{
    int result;
    void* view;
    std::string out;
    std::string err;
};

Attached attach()
{
    int somewhere = 0;
    Attached attached{};
    attached.view = &somewhere; // so that a null is seen to be stored
    CapturedStream captured_out(stdout);
    CapturedStream captured_err(stderr);
    attached.result = Kor_LogFile::AttachSharedMemory(&attached.view);
    captured_err.stop();
    attached.err = captured_err.text();
    captured_out.stop();
    attached.out = captured_out.text();
    return attached;
}

std::string chosen_name()
{
    Windows windows;
    windows.open_error = 0;
    attach();
    return windows.opened.at(0);
}

/// Makes the library choose the Local name for what follows.
void choose_local_name()
{
    const Hook<EqualSidImport> no_group([](PSID, PSID) -> BOOL { return FALSE; });
    const Hook<PrivilegeCheckImport> not_held(
        [](HANDLE, PPRIVILEGE_SET, LPBOOL held) -> BOOL
        {
            *held = FALSE;
            return TRUE;
        });
    ASSERT_TRUE(no_group.installed() && not_held.installed());
    Kor_LogFile log(777, false);
}
} // namespace

TEST(ConfAttach, AnExistingBlockIsOpenedWithFullAccessAndMappedWhole)
{
    Windows windows;
    ASSERT_TRUE(windows.installed());
    windows.open_error = 0;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, 17);
    EXPECT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.out, "");
    EXPECT_EQ(attached.err, "");
    EXPECT_EQ(windows.opened.size(), 1u);
    EXPECT_EQ(windows.open_access, 0xF001Fu);
    EXPECT_EQ(windows.open_inherit, FALSE);
    EXPECT_EQ(windows.creations, 0);
    EXPECT_EQ(windows.mapped, windows.mapping);
    EXPECT_EQ(windows.map_access, 0xF001Fu);
    EXPECT_EQ(windows.map_high, 0u);
    EXPECT_EQ(windows.map_low, 0u);
    EXPECT_EQ(windows.map_size, 0u);
    EXPECT_EQ(windows.mapping_closed, 0); // kept open for the life of the process
}

TEST(ConfAttach, AMissingBlockIsCreatedForEveryoneWithAnInheritableHandle)
{
    Windows windows;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, 0);
    ASSERT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.out, "");
    EXPECT_EQ(attached.err, "");
    EXPECT_EQ(windows.creations, 1);
    EXPECT_EQ(windows.create_file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(windows.create_protection, static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(windows.create_high, 0u);
    EXPECT_EQ(windows.create_low, 4383776u);
    EXPECT_EQ(windows.create_name, windows.opened.at(0));
    EXPECT_EQ(windows.create_inherits, TRUE);
    EXPECT_TRUE(windows.create_has_descriptor);
    EXPECT_TRUE(windows.create_dacl_present);
    EXPECT_TRUE(windows.create_dacl_is_null);
    EXPECT_EQ(windows.mapping_closed, 0);
    const auto* const bytes = static_cast<const unsigned char*>(attached.view);
    for (const std::size_t offset : {0u, 4u, 8u, 4353008u, 4383016u, 4383020u, 4383775u})
        EXPECT_EQ(bytes[offset], 0) << offset; // attaching alone fills nothing in
}

TEST(ConfAttach, AnotherErrorOfOpeningIsReportedAndTheBlockCreated)
{
    for (const DWORD error : {5u, 6u, 1450u})
    {
        Windows windows;
        windows.open_error = error;
        const Attached attached = attach();
        EXPECT_EQ(attached.result, 0);
        EXPECT_NE(attached.view, nullptr);
        EXPECT_EQ(attached.err, "Failed in OpenFileMapping.error <" + std::to_string(error) + ">\n");
        EXPECT_EQ(attached.out, "");
    }
}

TEST(ConfAttach, NoMemoryForTheSecurityDescriptorIsReportedAndTheBlockCreated)
{
    Windows windows;
    const Hook<LocalAllocImport> fails(
        [](UINT flags, SIZE_T size) -> HLOCAL { return size == 40 ? nullptr : ::LocalAlloc(flags, size); });
    ASSERT_TRUE(fails.installed());
    const Attached attached = attach();
    EXPECT_GT(fails.calls(), 0);
    EXPECT_EQ(attached.result, 0);
    EXPECT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.err.rfind("AttachSharedMemory().Failed in LocalAlloc\n", 0), 0u) << attached.err;
    EXPECT_EQ(attached.out, "");
    EXPECT_FALSE(windows.create_has_descriptor);
    EXPECT_EQ(windows.creations, 1);
}

TEST(ConfAttach, TheSecurityDescriptorIsZeroedMemoryOf40Bytes)
{
    Windows windows;
    std::vector<SIZE_T> sizes;
    UINT flags_of_40 = 0;
    const Hook<LocalAllocImport> records(
        [&](UINT flags, SIZE_T size) -> HLOCAL
        {
            sizes.push_back(size);
            if (size == 40)
                flags_of_40 = flags;
            return ::LocalAlloc(flags, size);
        });
    attach();
    EXPECT_EQ(sizes, (std::vector<SIZE_T>{40}));
    EXPECT_EQ(flags_of_40 & LMEM_ZEROINIT, static_cast<UINT>(LMEM_ZEROINIT));
}

TEST(ConfAttach, ASecurityDescriptorThatCannotBeInitialisedIsReportedAndTheBlockCreated)
{
    Windows windows;
    DWORD revision = 0;
    const Hook<InitializeSecurityDescriptorImport> fails(
        [&](PSECURITY_DESCRIPTOR, DWORD asked) -> BOOL
        {
            revision = asked;
            ::SetLastError(ERROR_UNKNOWN_REVISION);
            return FALSE;
        });
    ASSERT_TRUE(fails.installed());
    const Attached attached = attach();
    EXPECT_EQ(fails.calls(), 1);
    EXPECT_EQ(revision, 1u);
    EXPECT_EQ(attached.result, 0);
    EXPECT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.err.rfind("AttachSharedMemory().Failed in InitializeSecurityDescriptor\n", 0), 0u)
        << attached.err;
    EXPECT_EQ(windows.creations, 1);
}

TEST(ConfAttach, ADaclThatCannotBeSetIsReportedAndTheBlockCreated)
{
    Windows windows;
    BOOL present = FALSE;
    ACL dummy{};
    PACL dacl = &dummy;
    const Hook<SetSecurityDescriptorDaclImport> fails(
        [&](PSECURITY_DESCRIPTOR, BOOL is_present, PACL list, BOOL) -> BOOL
        {
            present = is_present;
            dacl = list;
            return FALSE;
        });
    ASSERT_TRUE(fails.installed());
    const Attached attached = attach();
    EXPECT_EQ(fails.calls(), 1);
    EXPECT_EQ(present, TRUE);
    EXPECT_EQ(dacl, nullptr);
    EXPECT_EQ(attached.result, 0);
    EXPECT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.err, "AttachSharedMemory().Failed in SetSecurityDescriptorDacl\n");
    EXPECT_EQ(windows.creations, 1);
}

TEST(ConfAttach, ABlockThatCannotBeCreatedGivesNoView)
{
    Windows windows;
    windows.create_error = 1455;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, -1);
    EXPECT_EQ(attached.view, nullptr);
    EXPECT_EQ(attached.err, "Failed in CreateFileMapping.error 1455\n");
    EXPECT_EQ(attached.out, "");
    EXPECT_EQ(windows.maps, 0);
}

TEST(ConfAttach, ABlockThatCanNeitherBeOpenedNorCreatedGivesBothReportsInOrder)
{
    Windows windows;
    windows.open_error = 5;
    windows.create_error = 5;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, -1);
    EXPECT_EQ(attached.view, nullptr);
    EXPECT_EQ(attached.err, "Failed in OpenFileMapping.error <5>\nFailed in CreateFileMapping.error 5\n");
}

TEST(ConfAttach, ABlockThatAnotherProcessCreatedInBetweenCountsAsExisting)
{
    Windows windows;
    windows.error_after_creation = ERROR_ALREADY_EXISTS;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, 17);
    EXPECT_NE(attached.view, nullptr);
    EXPECT_EQ(attached.err, "****ERROR - OpenFileMapping->does not exist and CreateFileMapping->exists****\n");
    EXPECT_EQ(attached.out, "");
}

TEST(ConfAttach, AViewThatCannotBeMappedClosesTheBlockAgain)
{
    for (const DWORD open_error : {0u, static_cast<unsigned>(ERROR_FILE_NOT_FOUND)})
    {
        Windows windows;
        windows.open_error = open_error;
        windows.map_error = 8;
        const Attached attached = attach();
        EXPECT_EQ(attached.result, -1);
        EXPECT_EQ(attached.view, nullptr);
        EXPECT_EQ(attached.err, "****ERROR - Failed in MapViewOfFile.Error num is <8>****\n");
        EXPECT_EQ(attached.out, "");
        EXPECT_EQ(windows.mapping_closed, 1);
    }
}

namespace
{
/// Answers for the view's pages from `page` on what `change` makes of the truth.
struct PagesOfTheView
{
    PagesOfTheView(SIZE_T page, std::function<void(MEMORY_BASIC_INFORMATION&)> change)
        : hook(
              [page, change = std::move(change)](LPCVOID at, PMEMORY_BASIC_INFORMATION region, SIZE_T size) -> SIZE_T
              {
                  const SIZE_T result = ::VirtualQuery(at, region, size);
                  const auto before = static_cast<SIZE_T>(
                      static_cast<const char*>(at) - static_cast<const char*>(region->AllocationBase));
                  if (before < page * 4096)
                      region->RegionSize = page * 4096 - before;
                  else
                      change(*region);
                  return result;
              })
    {
    }

    Hook<VirtualQueryImport> hook;
};
} // namespace

TEST(ConfAttach, AViewThatCannotBeReadAndWrittenThroughoutCountsAsOneThatCannotBeMapped)
{
    struct Row
    {
        const char* name;
        SIZE_T page;
        std::function<void(MEMORY_BASIC_INFORMATION&)> change;
        bool usable;
    };
    const auto protect = [](DWORD protection)
    { return [protection](MEMORY_BASIC_INFORMATION& region) { region.Protect = protection; }; };
    const auto reserve = [](MEMORY_BASIC_INFORMATION& region)
    {
        region.State = MEM_RESERVE;
        region.Protect = 0;
    };
    const Row rows[] = {
        {"as it is", 1, [](MEMORY_BASIC_INFORMATION&) {}, true},
        {"executable", 1, protect(PAGE_EXECUTE_READWRITE), true},
        {"reserved from the start", 0, reserve, false},
        {"reserved from the second page", 1, reserve, false},
        {"reserved at the last page", BLOCK_SIZE / 4096, reserve, false},
        {"reserved behind the last page", BLOCK_SIZE / 4096 + 1, reserve, true},
        {"read-only", 1, protect(PAGE_READONLY), false},
        {"of which writing makes a copy", 1, protect(PAGE_WRITECOPY), false},
        {"without access", 1, protect(PAGE_NOACCESS), false},
        {"guarded", 1, protect(PAGE_READWRITE | PAGE_GUARD), false},
    };
    for (const Row& row : rows)
    {
        Windows windows;
        windows.open_error = 0;
        const PagesOfTheView pages(row.page, row.change);
        ASSERT_TRUE(pages.hook.installed());
        const Attached attached = attach();
        EXPECT_GT(pages.hook.calls(), 0) << row.name;
        EXPECT_EQ(attached.result, row.usable ? 17 : -1) << row.name;
        EXPECT_EQ(attached.view != nullptr, row.usable) << row.name;
        EXPECT_EQ(attached.err, row.usable ? "" : "****ERROR - Failed in MapViewOfFile.Error num is <998>****\n")
            << row.name;
        EXPECT_EQ(windows.mapping_closed, row.usable ? 0 : 1) << row.name;
    }
}

TEST(ConfAttach, WhatLiesBehindAViewThatIsTooSmallIsNotTakenForIt)
{
    for (const bool another : {false, true})
    {
        Windows windows;
        windows.open_error = 0;
        const PagesOfTheView pages(
            3,
            [another](MEMORY_BASIC_INFORMATION& region)
            {
                if (another)
                    region.AllocationBase = region.BaseAddress;
                else
                    region.State = MEM_FREE;
            });
        const Attached attached = attach();
        EXPECT_EQ(attached.result, -1);
        EXPECT_EQ(attached.view, nullptr);
        EXPECT_EQ(attached.err, "****ERROR - the shared block is smaller than a configuration****\n");
    }
}

TEST(ConfAttach, APageThatWindowsTellsNothingAboutIsNotTouched)
{
    Windows windows;
    windows.open_error = 0;
    const Hook<VirtualQueryImport> fails([](LPCVOID, PMEMORY_BASIC_INFORMATION, SIZE_T) -> SIZE_T { return 0; });
    EXPECT_EQ(attach().result, -1);
    EXPECT_EQ(fails.calls(), 1);
}

TEST(ConfAttach, AFailedAttachLeavesTheLogWithItsOwnConfiguration)
{
    Kor_LogFile log(777, false);
    const Kor_LogConf* const own = log.GetConf();
    Windows windows;
    windows.create_error = 5;
    CapturedStream captured_err(stderr);
    EXPECT_EQ(log.AttachSharedMemory(), -1);
    captured_err.stop();
    EXPECT_EQ(log.GetConf(), own);
    EXPECT_EQ(log.SetCustomLogLevel(3, 7, false), 0); // still its own
}

TEST(ConfAttach, AnAttachedLogUsesTheBlockOnceItReadsOrWritesIt)
{
    Kor_LogFile log(777, false);
    const Kor_LogConf* const own = log.GetConf();
    Windows windows;
    EXPECT_EQ(log.AttachSharedMemory(), 0);
    EXPECT_EQ(log.GetConf(), own); // attaching alone switches nothing
    EXPECT_EQ(log.ReadSharedMemory(), 0);
    EXPECT_NE(log.GetConf(), own);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 0); // all zero bytes
    const Kor_LogConf* const block = log.GetConf();
    EXPECT_EQ(log.ReadSharedMemory(), 0);
    EXPECT_EQ(log.GetConf(), block);
}

TEST(ConfAttach, WritingPublishesTheOwnConfigurationWithANewStampAndUsesTheBlock)
{
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.SetCustomLogLevel(Kor_LogConf::OUTPUT_PRIVATE_FILE, 3, 7, false), 0);
    const Kor_LogConf* const own = log.GetConf();
    const unsigned long long stamp = own->GetChangeCount();
    Windows windows;
    EXPECT_EQ(log.AttachSharedMemory(), 0);
    EXPECT_EQ(log.WriteToSharedMemory(), 0);
    EXPECT_NE(log.GetConf(), own);
    EXPECT_EQ(log.GetConf()->GetOutput(), 2);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 7);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(4), 4);
    EXPECT_NE(log.GetConf()->GetChangeCount(), stamp);
    EXPECT_NE(log.GetConf()->GetChangeCount(), 0u);
    EXPECT_EQ(log.GetLogLevel(30000), 7);
    EXPECT_EQ(log.SetCustomLogLevel(3, 5, true), 0); // the block is its own now
    EXPECT_EQ(log.GetLogLevel(30000), 5);
}

TEST(ConfAttach, LoggingGoesOnWithTheConfigurationOfTheFile)
{
    struct Row
    {
        const char* name;
        DWORD create_error, map_error;
        const char* err;
    };
    const Row rows[] = {
        {"no block", 5, 0, "Failed in CreateFileMapping.error 5\n"},
        {"no view", 0, 8, "****ERROR - Failed in MapViewOfFile.Error num is <8>****\n"},
    };
    for (const Row& row : rows)
    {
        const TempDirectory directory;
        ASSERT_TRUE(write_file(directory.file("logger"), "2\nfile_size_limit_in_mb=15\nNet 3 7\n"));
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "");
        const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
        Windows windows;
        windows.create_error = row.create_error;
        windows.map_error = row.map_error;
        CapturedStream captured_err(stderr);
        {
            Kor_LogFile log(777, false);
            captured_err.stop();
            EXPECT_EQ(captured_err.text(), row.err) << row.name;
            EXPECT_EQ(log.GetConf()->GetSizeLimitInMb(), 15) << row.name;
            EXPECT_EQ(log.GetLogLevel(30000), 7) << row.name;
            EXPECT_EQ(log.GetLogLevel(40000), 4) << row.name;
            ASSERT_EQ(log.Open("app.log", "app"), 0) << row.name;
            ASSERT_EQ(log.StoreParams("f.cpp", "g", 1, 7, 3, 1), 1) << row.name;
            log.Log("still here");
            EXPECT_EQ(log.SetCustomLogLevel(3, 6, true), 0) << row.name;
            EXPECT_EQ(log.GetLogLevel(30000), 6) << row.name;
        }
        EXPECT_NE(read_file(directory.file("app.log")).find("-> still here"), std::string::npos) << row.name;
    }
}

TEST(ConfAttach, TheDevelopVariableKeepsALogOffTheBlock)
{
    struct Row
    {
        const char* value;
        bool attaches;
    };
    for (const Row& row :
         {Row{"1", false}, {"1x", false}, {"10", false}, {"0", true}, {"x1", true}, {" 1", true}, {"", true}})
    {
        const TempDirectory directory;
        ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 7\n"));
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", row.value);
        const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
        Windows windows;
        ASSERT_TRUE(windows.installed());
        Kor_LogFile log(777, false);
        EXPECT_EQ(!windows.opened.empty(), row.attaches) << row.value;
        EXPECT_EQ(windows.creations, row.attaches ? 1 : 0) << row.value;
        EXPECT_EQ(log.GetLogLevel(30000), 7) << row.value;
        EXPECT_EQ(log.InitConf(), 0);
        EXPECT_EQ(windows.creations, row.attaches ? 1 : 0) << row.value; // once
    }
}

TEST(ConfAttach, AnOverrideOfTheOutputIsPublishedWithANewBlock)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 7\n"));
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "");
    const EnvironmentVariable output("KORAL_LOG_OUTPUT", "0");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    Windows windows;
    Kor_LogFile log(777, false);
    EXPECT_EQ(windows.creations, 1);
    EXPECT_EQ(log.GetConf()->GetOutput(), 0);
    ASSERT_NE(windows.block, nullptr);
    EXPECT_EQ(windows.block->output, 0);
    EXPECT_EQ(windows.block->packageLevels[3], 7);
}

// The name ------------------------------------------------------------------------------------------

TEST(ConfBlockName, ItIsGlobalForAdministratorsAndForHoldersOfThePrivilege)
{
    struct Row
    {
        const char* name;
        bool administrator;
        int elevation; // 1 default, 2 full, 3 limited
        bool looked_up, checked, held;
        const char* chosen;
    };
    const Row rows[] = {
        {"administrator", true, 1, true, true, false, GLOBAL_NAME},
        {"elevated administrator", true, 2, true, true, false, GLOBAL_NAME},
        {"limited administrator without the privilege", true, 3, true, true, false, LOCAL_NAME},
        {"limited administrator with the privilege", true, 3, true, true, true, GLOBAL_NAME},
        {"user with the privilege", false, 1, true, true, true, GLOBAL_NAME},
        {"user without the privilege", false, 1, true, true, false, LOCAL_NAME},
        {"user, privilege unknown", false, 1, false, true, true, LOCAL_NAME},
        {"user, check fails", false, 1, true, false, false, LOCAL_NAME},
    };
    for (const Row& row : rows)
    {
        std::string privilege;
        const Hook<EqualSidImport> sids([&](PSID, PSID) -> BOOL { return row.administrator; });
        const Hook<GetTokenInformationImport> tokens(
            [&](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID buffer, DWORD size, PDWORD needed) -> BOOL
            {
                if (kind != TokenElevationType)
                    return ::GetTokenInformation(token, kind, buffer, size, needed);
                std::memcpy(buffer, &row.elevation, 4);
                *needed = 4;
                return TRUE;
            });
        const Hook<LookupPrivilegeValueAImport> lookup(
            [&](LPCSTR, LPCSTR name, PLUID luid) -> BOOL
            {
                privilege = name;
                luid->LowPart = 30;
                luid->HighPart = 0;
                return row.looked_up;
            });
        const Hook<PrivilegeCheckImport> check(
            [&](HANDLE, PPRIVILEGE_SET, LPBOOL held) -> BOOL
            {
                *held = row.held;
                return row.checked;
            });
        ASSERT_TRUE(sids.installed() && tokens.installed() && lookup.installed() && check.installed());
        {
            Kor_LogFile log(777, false);
        }
        EXPECT_EQ(chosen_name(), row.chosen) << row.name;
        if (!row.administrator)
        {
            EXPECT_EQ(privilege, "SeCreateGlobalPrivilege") << row.name;
        }
    }
}

TEST(ConfBlockName, TheGroupLookedForIsThatOfTheBuiltInAdministrators)
{
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    PSID administrators = nullptr;
    ASSERT_TRUE(::AllocateAndInitializeSid(&authority, 2, 32, 544, 0, 0, 0, 0, 0, 0, &administrators));
    bool seen = true;
    const Hook<EqualSidImport> sids(
        [&](PSID a, PSID b) -> BOOL
        {
            seen = seen && (::EqualSid(a, administrators) || ::EqualSid(b, administrators));
            return FALSE;
        });
    Kor_LogFile log(777, false);
    EXPECT_GT(sids.calls(), 0);
    EXPECT_TRUE(seen);
    ::FreeSid(administrators);
}

TEST(ConfBlockName, AProcessWithoutAReadableTokenTakesTheLocalName)
{
    const Hook<OpenProcessTokenImport> fails([](HANDLE, DWORD, PHANDLE) -> BOOL { return FALSE; });
    const Hook<PrivilegeCheckImport> check([](HANDLE, PPRIVILEGE_SET, LPBOOL) -> BOOL { return FALSE; });
    ASSERT_TRUE(fails.installed());
    {
        Kor_LogFile log(777, false);
    }
    EXPECT_EQ(chosen_name(), LOCAL_NAME);
}

TEST(ConfBlockName, AProcessWithTheLocalNameJoinsAGlobalBlock)
{
    choose_local_name();
    Windows windows;
    windows.open_error_of_second = Windows::SUCCEED;
    const Attached attached = attach();
    EXPECT_EQ(attached.result, 17);
    EXPECT_EQ(windows.opened, (Names{LOCAL_NAME, GLOBAL_NAME}));
    EXPECT_EQ(windows.creations, 0);
    EXPECT_EQ(attached.err, "");
}

TEST(ConfBlockName, AProcessWithTheLocalNameTakesALocalBlockFirst)
{
    choose_local_name();
    Windows windows;
    windows.open_error = 0;
    EXPECT_EQ(attach().result, 17);
    EXPECT_EQ(windows.opened, (Names{LOCAL_NAME}));
}

TEST(ConfBlockName, AProcessWithTheLocalNameCreatesALocalBlock)
{
    choose_local_name();
    Windows windows;
    EXPECT_EQ(attach().result, 0);
    EXPECT_EQ(windows.opened, (Names{LOCAL_NAME, GLOBAL_NAME}));
    EXPECT_EQ(windows.create_name, LOCAL_NAME);
}

TEST(ConfBlockName, AProcessWithTheGlobalNameLooksForNoOther)
{
    const Hook<EqualSidImport> administrator([](PSID, PSID) -> BOOL { return TRUE; });
    const Hook<GetTokenInformationImport> elevated(
        [](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID buffer, DWORD size, PDWORD needed) -> BOOL
        {
            if (kind != TokenElevationType)
                return ::GetTokenInformation(token, kind, buffer, size, needed);
            const int full = 2;
            std::memcpy(buffer, &full, 4);
            *needed = 4;
            return TRUE;
        });
    {
        Kor_LogFile log(777, false);
    }
    Windows windows;
    EXPECT_EQ(attach().result, 0);
    EXPECT_EQ(windows.opened, (Names{GLOBAL_NAME}));
    EXPECT_EQ(windows.create_name, GLOBAL_NAME);
}

TEST(ConfBlockName, TheInfoVariablePrintsItOnceForEveryAttach)
{
    const std::string name = chosen_name();
    const EnvironmentVariable info("PRISMATE_LOG_INFO", "1");
    for (const DWORD open_error : {0u, static_cast<unsigned>(ERROR_FILE_NOT_FOUND)})
    {
        Windows windows;
        windows.open_error = open_error;
        const Attached attached = attach();
        EXPECT_EQ(attached.out + attached.err, "file mapping name is " + name + "\n");
    }
    choose_local_name();
    Windows windows; // joins the Global block, yet the chosen name is printed
    windows.open_error_of_second = Windows::SUCCEED;
    const Attached attached = attach();
    EXPECT_EQ(attached.out + attached.err, std::string("file mapping name is ") + LOCAL_NAME + "\n");
}

namespace
{
KOR_CHILD(conf_attach_trace)
{
    Windows windows;
    void* view = nullptr;
    return Kor_LogFile::AttachSharedMemory(&view);
}
} // namespace

TEST(ConfAttach, AttachingIsTracedWithTheDebugVariableOnly)
{
    ChildOptions options;
    EXPECT_EQ(run_child("conf_attach_trace", options).out, "");
    options.environment = {{"PRISMATE_LOG_DEBUG", "1"}};
    EXPECT_EQ(text_of(run_child("conf_attach_trace", options).out), "AttachedSharedMemory\n");
}

// A changed file ------------------------------------------------------------------------------------

TEST(ConfPublish, WithoutABlockNothingCanBePublished)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 7\n"));
    struct Row
    {
        DWORD create_error, map_error;
        int result;
    };
    for (const Row& row : {Row{5, 0, -1}, {0, 8, -1}, {0, 0, 0}})
    {
        Windows windows;
        windows.create_error = row.create_error;
        windows.map_error = row.map_error;
        CapturedStream captured_err(stderr);
        EXPECT_EQ(Kor_LogFile::UpdateSMFromFile(directory.file("logger").c_str()), row.result);
        captured_err.stop();
    }
}

TEST(ConfPublish, TheBlockTakesOverAllOfTheFileAndAStampOfNow)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "3\nfile_size_limit_in_mb=15\nNet 3 7 [(6;;a)]\n"));
    Windows windows;
    ASSERT_EQ(Kor_LogFile::UpdateSMFromFile(directory.file("logger").c_str()), 0);
    const Kor_LogConf* const block = windows.block;
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->output, 2);
    EXPECT_TRUE(block->printToDebugger);
    EXPECT_EQ(block->sizeLimitInMb, 15u);
    EXPECT_STREQ(block->packageNames[3], "Net");
    EXPECT_EQ(block->packageLevels[3], 7);
    EXPECT_EQ(block->packageLevels[4], 4);
    EXPECT_STREQ(Kor_LogLevelRuleTable(block->ruleTables[3]).ToString(), "[(6;;a)]");
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    const std::uint64_t milliseconds = (ticks - 116444736000000000ULL) / 10000;
    EXPECT_LE(block->changeCount, milliseconds);
    EXPECT_GT(block->changeCount, milliseconds - 60000);
}

TEST(ConfPublish, AMissingFilePublishesTheDefaults)
{
    const TempDirectory directory;
    Windows windows;
    CapturedStream captured_out(stdout);
    EXPECT_EQ(Kor_LogFile::UpdateSMFromFile(directory.file("logger").c_str()), 0);
    captured_out.stop();
    EXPECT_EQ(captured_out.text(), "Kor_LogFile - Warning - No configuration file: " + directory.file("logger") + "\n");
    const Kor_LogConf* const block = windows.block;
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->output, 0);
    EXPECT_EQ(block->sizeLimitInMb, 0u);
    EXPECT_EQ(block->packageLevels[0], 4);
    EXPECT_EQ(block->packageLevels[749], 4);
    EXPECT_NE(block->changeCount, 0u);
}

// Memory --------------------------------------------------------------------------------------------

namespace
{
/// No memory for anything of the size of a configuration.
struct NoConfigurations
{
    Hook<mallocImport> hook{
        [this](std::size_t size) -> void* { return size >= BLOCK_SIZE ? nullptr : hook.original(size); }};
};
} // namespace

TEST(ConfMemory, WithoutMemoryForTheTemporaryConfigurationNothingIsPublished)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 7\n"));
    Windows windows;
    const NoConfigurations none;
    ASSERT_TRUE(none.hook.installed());
    EXPECT_EQ(Kor_LogFile::UpdateSMFromFile(directory.file("logger").c_str()), -1);
    EXPECT_GT(none.hook.calls(), 0);
}

TEST(ConfMemory, ALogWithoutAConfigurationSaysSoAndRejectsEveryMessage)
{
    std::unique_ptr<Kor_LogFile> log;
    {
        const NoConfigurations none;
        ASSERT_TRUE(none.hook.installed());
        log = std::make_unique<Kor_LogFile>(777, false);
    }
    EXPECT_EQ(log->GetConf(), nullptr);
    CapturedStream captured_out(stdout);
    CapturedStream captured_err(stderr);
    const int passes = log->CheckMsgLevel(30000, 1);
    captured_err.stop();
    captured_out.stop();
    EXPECT_EQ(passes, 0);
    EXPECT_EQ(captured_err.text(), "ERROR.Can not CheckMsgLevel.conf is NULL\n");
    EXPECT_EQ(captured_out.text(), "");
    EXPECT_EQ(log->ReadSharedMemory(), -1);
}

TEST(ConfMemory, ALogWithoutAConfigurationSurvivesItsWholeLife)
{
    const TempDirectory directory;
    ASSERT_TRUE(write_file(directory.file("logger"), "2\nl\nNet 3 7\n"));
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", directory.path());
    const NoConfigurations none;
    CapturedStream captured_err(stderr);
    {
        Kor_LogFile log(777, true);
        log.Open("app.log", "app");
        log.CheckMsgLevel(0, 1);
        log.GetLogLevel(0);
        if (log.StoreParams("f", "g", 1, 1, 1, 1) != 0)
            log.Log("text");
        log.IsRejected(7, 3);
        log.IsCacheTableUpToDate();
        log.ClearCacheTable();
        log.UpdateCacheFromSharedMem(3);
        log.SetIP("10.1.2.3");
        log.SetIP(nullptr);
        log.SetCustomLogLevel(3, 7, true);
        log.WriteToSharedMemory();
        log.ReadFile();
        log.InitConf();
    }
    captured_err.stop();
}
