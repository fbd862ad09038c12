// admin_test.cpp - lumlog-admin as an administrator calls it, and what Windows finds afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "import_hook.h"
#include "log_directory.h"
#include "lumlog.h"

namespace
{
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

KOR_IMPORT(ReportEventA);

const std::string LOGS = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\";

/// Of this program, whose path may hold any character.
fs::path own_folder()
{
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

/// A value of a key below HKEY_LOCAL_MACHINE, with what it is in front: "expand:..."; empty: there is none.
std::string value_of(const std::string& key, const char* name)
{
    char text[2048] = {};
    DWORD size = sizeof text;
    DWORD kind = 0;
    const DWORD flags = RRF_RT_ANY | RRF_NOEXPAND;
    if (::RegGetValueA(HKEY_LOCAL_MACHINE, key.c_str(), name, flags, &kind, text, &size) != ERROR_SUCCESS)
        return {};
    if (kind == REG_DWORD)
        return "number:" + std::to_string(*reinterpret_cast<const DWORD*>(text));
    return (kind == REG_EXPAND_SZ ? "expand:" : kind == REG_SZ ? "text:" : "other:") + std::string(text);
}

bool has_key(const std::string& key)
{
    HKEY opened = nullptr;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS)
        return false;
    ::RegCloseKey(opened);
    return true;
}

/// What the event viewer shows: the text that a file has for a code, with the strings of the event in it.
std::string shown_text(const std::string& file, DWORD code, const std::vector<std::string>& strings)
{
    const HMODULE module = ::LoadLibraryExA(file.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(module, nullptr) << file;
    std::vector<std::wstring> wide;
    for (const std::string& text : strings)
        wide.emplace_back(text.begin(), text.end());
    std::vector<DWORD_PTR> arguments;
    for (const std::wstring& text : wide)
        arguments.push_back(reinterpret_cast<DWORD_PTR>(text.c_str()));
    wchar_t text[8192] = {};
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module, code, 0, text, 8192,
        reinterpret_cast<va_list*>(arguments.data()));
    if (module != nullptr)
        ::FreeLibrary(module);
    char result[8192] = {};
    ::WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), result, sizeof result - 1, nullptr, nullptr);
    return text_of(result);
}

/// An installation of the tool in a folder of this test, and a source of a name that no other test has.
class Admin : public ::testing::Test
{
protected:
    Admin() { install(m_folder.path()); }
    ~Admin() override
    {
        for (const std::string& name : m_names)
            ::RegDeleteTreeA(HKEY_LOCAL_MACHINE, (LOGS + "Application\\" + name).c_str());
    }

    static void install(const std::string& folder)
    {
        for (const char* const file : {"lumlog-admin.exe", "LUMlogEvents.dll"})
            fs::copy_file(own_folder() / file, fs::path(folder) / file);
    }

    /// A source of this test, which goes with it.
    std::string source(const std::string& name)
    {
        m_names.push_back(unique_name(name.c_str()));
        return m_names.back();
    }

    static std::string key(const std::string& name) { return LOGS + "Application\\" + name; }

    ChildResult run(std::vector<std::string> arguments, const std::string& folder = {}) const
    {
        ChildOptions options;
        options.program = (folder.empty() ? m_folder.path() : folder) + "\\lumlog-admin.exe";
        options.arguments = std::move(arguments);
        ChildResult result = run_child("", options);
        EXPECT_TRUE(result.finished);
        result.out = text_of(result.out);
        result.err = text_of(result.err);
        return result;
    }

    /// Of files with packages' names that lie beside the tool.
    std::vector<std::string> category_files() const
    {
        std::vector<std::string> files;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_folder.path()))
            if (entry.path().filename().string().rfind("LUMlogCategories", 0) == 0)
                files.push_back(entry.path().string());
        return files;
    }

    std::string events_file() const { return m_folder.file("LUMlogEvents.dll"); }

    /// That of the suite whose codes are in codes.txt.
    std::string suite_file() const
    {
        const std::string file = m_log.file("suite_messages.dll");
        if (!file_exists(file))
            fs::copy_file(own_folder() / "suite_messages.dll", file);
        return file;
    }

    const TempDirectory m_folder;
    const TempDirectory m_log;

private:
    std::vector<std::string> m_names;
};
} // namespace

TEST_F(Admin, RegisteringWritesTheKeyThatTheEventViewerReads)
{
    const std::string name = source("viewer");
    write_file(m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nViewer 310 5\nReplay 320 4\n");
    const ChildResult result = run({"register", name, "--dir", m_log.path()});
    EXPECT_EQ(result.exit_code, 0u) << result.err;
    EXPECT_EQ(result.out, name + " is registered; its categories are named as in " + m_log.path() + "\\logger.\n");
    ASSERT_EQ(category_files().size(), 1u);
    EXPECT_EQ(value_of(key(name), "EventMessageFile"), "expand:" + events_file());
    EXPECT_EQ(value_of(key(name), "CategoryMessageFile"), "expand:" + category_files()[0]);
    EXPECT_EQ(value_of(key(name), "CategoryCount"), "number:749");
    EXPECT_EQ(value_of(key(name), "TypesSupported"), "number:7");
    EXPECT_EQ(value_of(key(name), "LUMlogFolder"), "text:" + m_log.path());
}

TEST_F(Admin, CategoriesAreThePackagesOfTheLevelFile)
{
    const std::string name = source("viewer");
    write_file(
        m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nViewer 310 5\nGr\xC3\xB6\xC3\x9F"
                              "e 1 4\n100%1 749 4\n");
    ASSERT_EQ(run({"register", name, "--dir", m_log.path()}).exit_code, 0u);
    ASSERT_EQ(category_files().size(), 1u);
    const std::string file = category_files()[0];
    EXPECT_EQ(shown_text(file, 310, {}), "Viewer\n");
    EXPECT_EQ(
        shown_text(file, 1, {}), "Gr\xC3\xB6\xC3\x9F"
                                 "e\n");
    EXPECT_EQ(shown_text(file, 749, {}), "100%1\n");
    EXPECT_EQ(shown_text(file, 2, {}), "package 2\n");
    EXPECT_EQ(shown_text(file, 748, {}), "package 748\n");
    EXPECT_EQ(shown_text(file, 750, {}), "");
}

TEST_F(Admin, WithoutALevelFileCategoriesAreNumbers)
{
    const std::string name = source("viewer");
    for (const char* const folder : {"", "  "}) // as an installer passes what nobody has set
    {
        const ChildResult result = run({"register", name, "--dir", folder});
        EXPECT_EQ(result.exit_code, 0u) << result.err;
        EXPECT_EQ(result.out, name + " is registered; its categories are the packages' numbers.\n");
        EXPECT_EQ(value_of(key(name), "LUMlogFolder"), "");
        ASSERT_EQ(category_files().size(), 1u);
        EXPECT_EQ(shown_text(category_files()[0], 310, {}), "package 310\n");
    }
}

TEST_F(Admin, EveryCodeThatTheLibraryReportsIsShownWithItsStrings)
{
    struct Event
    {
        DWORD code;
        std::vector<std::string> strings;
    };
    std::vector<Event> events;
    const LogDirectory directory("1\nfile_size_limit_in_mb=0\nPerfmon 109 7\n");
    Hook<ReportEventAImport> report{
        [&](HANDLE, WORD, WORD, DWORD code, PSID, WORD count, DWORD, LPCSTR* texts, void*) -> BOOL
        {
            events.push_back({code, {texts, texts + count}});
            return TRUE;
        }};
    ASSERT_TRUE(report.installed());
    KorGLog.Open("viewer");
    KorGLog.ReadFile();
    KOR_LOG(KorGLog, 4, 310, "only %d%% of the images", 12);
    KorGLog.StoreParams("Kor_Image", "Load", 210, 3, 17);
    KorGLog.LogNoHeadline("without a headline");
    lum_write_bare(LUM_ERROR, 310, 3100012, "front.png", 9);
    lum_write_bare(LUM_ERROR, 310, 3100013, "front.png", 9);
    lum_write_bare(LUM_ERROR, 310, 3100014, "front.png", 9);
    lum_write_bare(LUM_ERROR, 310, 3100101, "front.png", 9);
    lum_write_bare(LUM_ERROR, 749, 7499999, "front.png", 9);
    KorPLog.Open("viewer");
    KorPLog.StoreParams("archive.cpp", 1, 4, 310);
    KorPLog.Log("a measurement");
    std::vector<DWORD> codes;
    for (const Event& event : events)
    {
        const bool is_own = event.code == 65534 || event.code == 65535;
        const std::string file = is_own ? events_file() : suite_file();
        const std::string text = shown_text(file, event.code, event.strings);
        for (const std::string& string : event.strings)
            EXPECT_THAT(text, HasSubstr(text_of(string))) << event.code;
        if (std::find(codes.begin(), codes.end(), event.code) == codes.end())
            codes.push_back(event.code);
    }
    EXPECT_THAT(
        codes, ::testing::UnorderedElementsAre(65534u, 65535u, 3100012u, 3100013u, 3100014u, 3100101u, 7499999u));
    const auto with_headline =
        std::find_if(events.begin(), events.end(), [](const Event& event) { return event.code == 65535; });
    EXPECT_EQ(
        shown_text(events_file(), 65535, with_headline->strings),
        with_headline->strings[0] + " " + with_headline->strings[1] + "\n");
}

TEST_F(Admin, ASuiteHasTextsOfItsOwn)
{
    const std::string file = suite_file();
    EXPECT_EQ(shown_text(file, 3100012, {"front.png"}), "The album cannot be opened: front.png\n");
    EXPECT_EQ(shown_text(file, 3100013, {"front.png"}), "front.png\n");
    EXPECT_EQ(
        shown_text(file, 3100014, {"front.png"}), "100% of [x]; 5%2 left \\ Pr\xC3\xBC"
                                                  "fung: front.png\n");
    EXPECT_EQ(shown_text(file, 3100100, {"a"}), "a\n");
    EXPECT_EQ(shown_text(file, 3100102, {"c"}), "c\n");
    EXPECT_EQ(shown_text(file, 3100103, {"d"}), "");
    EXPECT_EQ(shown_text(file, 0, {"a"}), "nothing but this\n");

    const std::string name = source("viewer");
    ASSERT_EQ(run({"register", name, "--messages", file}).exit_code, 0u);
    EXPECT_EQ(value_of(key(name), "EventMessageFile"), "expand:" + events_file() + ";" + file);
    ASSERT_EQ(run({"register"}).exit_code, 0u); // anew: as it is
    EXPECT_EQ(value_of(key(name), "EventMessageFile"), "expand:" + events_file() + ";" + file);
    EXPECT_EQ(run({"status", name}).exit_code, 0u);
}

TEST_F(Admin, RegisteringAnewTakesNewNamesAndLeavesOneFile)
{
    const std::string name = source("viewer");
    const std::string other = source("archive");
    write_file(m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nViewer 310 5\n");
    ASSERT_EQ(run({"register", name, "--dir", m_log.path()}).exit_code, 0u);
    const std::vector<std::string> before = category_files();
    ASSERT_EQ(run({"register", name, "--dir", m_log.path()}).exit_code, 0u);
    EXPECT_EQ(category_files(), before);
    write_file(m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nAlbum 310 5\n");
    ASSERT_EQ(run({"register", other}).exit_code, 0u); // the folder is known of the one that is there
    ASSERT_EQ(category_files().size(), 1u);
    EXPECT_EQ(value_of(key(other), "CategoryMessageFile"), "expand:" + category_files()[0]);
    EXPECT_EQ(value_of(key(name), "LUMlogFolder"), "text:" + m_log.path());
    const std::string file = value_of(key(name), "CategoryMessageFile").substr(7);
    EXPECT_NE(file, before[0]);
    EXPECT_EQ(shown_text(file, 310, {}), "Album\n");
    EXPECT_FALSE(file_exists(before[0]));
}

TEST_F(Admin, AFileThatWindowsHasOpenIsNotInTheWay)
{
    const std::string name = source("viewer");
    ASSERT_EQ(run({"register", name}).exit_code, 0u);
    const std::string open = category_files()[0];
    const HANDLE holder =
        ::CreateFileA(open.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    EXPECT_EQ(run({"register", name}).exit_code, 0u);
    write_file(m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nAlbum 310 5\n");
    const ChildResult renamed = run({"register", name, "--dir", m_log.path()});
    EXPECT_EQ(renamed.exit_code, 0u) << renamed.err;
    EXPECT_THAT(renamed.out, HasSubstr("1 file that Windows has open will go when the machine starts next."));
    const ChildResult gone = run({"unregister", "--all"});
    EXPECT_EQ(gone.exit_code, 0u) << gone.err;
    EXPECT_EQ(category_files(), std::vector<std::string>{open});
    ::CloseHandle(holder);
}

TEST_F(Admin, ASourceOfAnotherProductIsLeftAloneUnlessItIsToBeReplaced)
{
    const std::string name = source("viewer");
    HKEY opened = nullptr;
    ASSERT_EQ(::RegCreateKeyA(HKEY_LOCAL_MACHINE, key(name).c_str(), &opened), ERROR_SUCCESS);
    ::RegSetValueExA(opened, "EventMessageFile", 0, REG_SZ, reinterpret_cast<const BYTE*>("C:\\other.dll"), 13);
    ::RegCloseKey(opened);
    for (const char* const command : {"register", "unregister"})
    {
        const ChildResult result = run({command, name});
        EXPECT_EQ(result.exit_code, 1u);
        EXPECT_THAT(result.err, HasSubstr("belongs to another product: its texts are in C:\\other.dll."));
    }
    EXPECT_EQ(value_of(key(name), "EventMessageFile"), "text:C:\\other.dll");
    EXPECT_EQ(category_files().size(), 0u);
    EXPECT_EQ(run({"unregister", "--all"}).exit_code, 0u);
    EXPECT_TRUE(has_key(key(name)));
    EXPECT_EQ(run({"register", name, "--replace"}).exit_code, 0u);
    EXPECT_EQ(value_of(key(name), "EventMessageFile"), "expand:" + events_file());
}

TEST_F(Admin, UnregisteringLeavesNothing)
{
    const std::string first = source("viewer");
    const std::string second = source("archive");
    ASSERT_EQ(run({"register", first, second}).exit_code, 0u);
    const ChildResult one = run({"unregister", first});
    EXPECT_EQ(one.exit_code, 0u);
    EXPECT_EQ(one.out, first + " is not registered any more.\n");
    EXPECT_FALSE(has_key(key(first)));
    EXPECT_TRUE(has_key(key(second)));
    EXPECT_EQ(category_files().size(), 1u);
    const ChildResult again = run({"unregister", first});
    EXPECT_EQ(again.exit_code, 0u);
    EXPECT_EQ(again.out, first + " is not registered.\n");
    EXPECT_EQ(run({"unregister", "--all"}).exit_code, 0u);
    EXPECT_FALSE(has_key(key(second)));
    EXPECT_EQ(category_files().size(), 0u);
}

TEST_F(Admin, AllMeansThoseOfThisInstallation)
{
    const TempDirectory other_folder;
    install(other_folder.path());
    const std::string own = source("viewer");
    const std::string other = source("archive");
    ASSERT_EQ(run({"register", own}).exit_code, 0u);
    ASSERT_EQ(run({"register", other}, other_folder.path()).exit_code, 0u);
    EXPECT_EQ(run({"unregister", "--all"}).exit_code, 0u);
    EXPECT_FALSE(has_key(key(own)));
    EXPECT_TRUE(has_key(key(other)));
    EXPECT_EQ(run({"register", other}).exit_code, 0u); // another installation of the library takes it over
    EXPECT_EQ(value_of(key(other), "EventMessageFile"), "expand:" + events_file());
}

TEST_F(Admin, StatusTellsWhatIsNotInOrderAndWhatToDo)
{
    const std::string name = source("viewer");
    const std::string missing = source("archive");
    EXPECT_EQ(run({"status", name}).exit_code, 1u);
    ASSERT_EQ(run({"register", name}).exit_code, 0u);
    const ChildResult good = run({"status", name});
    EXPECT_EQ(good.exit_code, 0u) << good.err;
    EXPECT_THAT(good.out, HasSubstr(name + ": in order\n    texts       " + events_file() + "\n"));
    EXPECT_EQ(good.err, "");
    const ChildResult one_missing = run({"status", name, missing});
    EXPECT_EQ(one_missing.exit_code, 1u);
    EXPECT_THAT(one_missing.err, HasSubstr(missing + " is not registered.\n"));
    ASSERT_TRUE(::DeleteFileA(category_files()[0].c_str()));
    const ChildResult bad = run({"status", name});
    EXPECT_EQ(bad.exit_code, 1u);
    EXPECT_THAT(bad.out, HasSubstr(name + ": the file with its categories is not there: "));
    EXPECT_THAT(bad.err, HasSubstr("Next: lumlog-admin register"));
    EXPECT_EQ(run({"register"}).exit_code, 0u);
    EXPECT_EQ(run({"status", name}).exit_code, 0u);
}

TEST_F(Admin, StatusSpeaksJsonToPrograms)
{
    const std::string name = source("viewer");
    write_file(m_log.file("logger"), "1\nfile_size_limit_in_mb=10\nViewer 310 5\n");
    ASSERT_EQ(run({"register", name, "--dir", m_log.path()}).exit_code, 0u);
    const ChildResult result = run({"status", name, "--json"});
    EXPECT_EQ(result.exit_code, 0u);
    EXPECT_THAT(result.out, HasSubstr("\"in_order\": true"));
    EXPECT_THAT(result.out, HasSubstr("\"310\": \"Viewer\""));
    EXPECT_THAT(result.out, Not(HasSubstr("\"311\"")));
    EXPECT_THAT(result.out, HasSubstr("\"missing\": []"));
}

TEST_F(Admin, WhatCannotBeDoneChangesNothing)
{
    const std::string name = source("viewer");
    const ChildResult no_folder = run({"register", name, "--dir", m_log.file("none")});
    EXPECT_EQ(no_folder.exit_code, 1u);
    EXPECT_THAT(no_folder.err, HasSubstr("There is no " + m_log.file("none") + "\\logger that can be read."));
    const ChildResult no_file = run({"register", name, "--messages", m_log.file("none.dll")});
    EXPECT_EQ(no_file.exit_code, 1u);
    EXPECT_THAT(no_file.err, HasSubstr("There is no file " + m_log.file("none.dll") + "."));
    ASSERT_TRUE(::DeleteFileA(events_file().c_str()));
    const ChildResult no_texts = run({"register", name});
    EXPECT_EQ(no_texts.exit_code, 1u);
    EXPECT_THAT(no_texts.err, HasSubstr("LUMlogEvents.dll is not there.\nIt belongs beside lumlog-admin.exe."));
    EXPECT_FALSE(has_key(key(name)));
    EXPECT_EQ(category_files().size(), 0u);
}

TEST_F(Admin, AWrongCallIsToldApart)
{
    for (const std::vector<std::string>& call : std::vector<std::vector<std::string>>{
             {},
             {"registre"},
             {"register", "a\\b"},
             {"register", ""},
             {"register", std::string(256, 'x')},
             {"unregister"},
             {"unregister", "viewer", "--all"},
             {"status", "--wrong"}})
    {
        const ChildResult result = run(call);
        EXPECT_EQ(result.exit_code, 2u) << result.out;
        EXPECT_NE(result.err, "");
    }
    EXPECT_THAT(run({"--help"}).out, HasSubstr("register"));
    EXPECT_EQ(run({"register", "--help"}).exit_code, 0u);
    EXPECT_THAT(run({"--version"}).out, HasSubstr("lumlog-admin "));
}

TEST_F(Admin, ATestEventIsWritten)
{
    const std::string name = source("viewer");
    const ChildResult result = run({"test", name});
    EXPECT_EQ(result.exit_code, 0u) << result.err;
    EXPECT_EQ(
        result.out, "An event of " + name + " was written: look in the event viewer, Windows Logs, Application.\n");
}
