// The last error of each thread.

#include "Kor_Error.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <type_traits>

#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(malloc);
KOR_IMPORT(_strdup);
KOR_IMPORT(free);
KOR_IMPORT(FlsSetValue);

static_assert(std::is_empty_v<Kor_Err>);
static_assert(Kor_Err::BOUNDS == 9003);

/// What KorGError writes through KorGLog.
class ThreadError : public ::testing::Test
{
protected:
    ThreadError() { KorGLog.Open("test.log", "viewer", false); }
    ~ThreadError() override
    {
        KorGLog.ClearAllLogDestinations();
        KorGError.Set(0);
        KorGError.ResetLogMsg();
    }

    /// Logs, with parameters of a level that is wanted, and returns the lines behind their arrow.
    Lines logged(const char* name, unsigned long code)
    {
        const std::size_t before = m_directory.lines().size();
        KorGLog.StoreParams("Kor_Image", "Load", 210, 3, 17);
        KorGError.Log(name, code);
        Lines texts;
        const Lines all = m_directory.lines();
        for (std::size_t i = before; i < all.size(); ++i)
            texts.push_back(all[i].substr(all[i].find("-> ") + 3));
        return texts;
    }

    const LogDirectory m_directory;
};

// The code -----------------------------------------------------------------------
TEST_F(ThreadError, AThreadStartsWithoutAnErrorWhateverOthersHave)
{
    KorGError.Set(30012);
    unsigned long seen = 1;
    Lines texts;
    on_another_thread(
        [&]
        {
            seen = KorGError.Get();
            texts = logged("N", 0);
            KorGError.Set(50001);
        });
    EXPECT_EQ(seen, 0u);
    EXPECT_EQ(texts, Lines{"Error occurred. "});
    EXPECT_EQ(KorGError.Get(), 30012u);
}

TEST_F(ThreadError, ThePackageIsTheCodeDividedByTenThousand)
{
    EXPECT_EQ(Kor_GError::range_size, 10000u);
    KorGError.Set(30012);
    EXPECT_EQ(KorGError.GetPackage(), 3u);
    KorGError.Set(9999);
    EXPECT_EQ(KorGError.GetPackage(), 0u);
    KorGError.Set(4294967295u);
    EXPECT_EQ(KorGError.Get(), 4294967295u);
    EXPECT_EQ(KorGError.GetPackage(), 429496u);
    KorGError.Set(0);
    EXPECT_EQ(KorGError.GetPackage(), 0u);
}

TEST_F(ThreadError, SettingTheCodeKeepsTheText)
{
    KorGError.SetLogMsg("%s", "T");
    KorGError.Set(30012);
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. T"});
}

// The text -----------------------------------------------------------------------
TEST_F(ThreadError, SettingTheTextKeepsTheCodeAndReplacesTheOldText)
{
    KorGError.Set(30012);
    KorGError.SetLogMsg("old");
    KorGError.SetLogMsg("%s ends after %u rows", "front.png", 17u);
    EXPECT_EQ(KorGError.Get(), 30012u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. front.png ends after 17 rows"});
}

TEST_F(ThreadError, ResettingTheTextKeepsTheCode)
{
    KorGError.Set(30012);
    KorGError.SetLogMsg("T");
    KorGError.ResetLogMsg();
    EXPECT_EQ(KorGError.Get(), 30012u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. "});
    KorGError.ResetLogMsg();
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. "});
}

/// Leaves no zero bytes on the stack that would end a text by luck.
void dirty_the_stack()
{
    volatile char dirt[16384];
    for (volatile char& c : dirt)
        c = 'y';
}

TEST_F(ThreadError, ATextOf1023CharactersFits)
{
    const std::string text(1023, 'x');
    dirty_the_stack();
    KorGError.SetLogMsg("%s", text.c_str());
    EXPECT_EQ(KorGError.Get(), 0u);
    EXPECT_EQ(logged("N", 0), Lines{"Error occurred. " + text});
}

TEST_F(ThreadError, ATextOf1024CharactersIsABoundsErrorInLine126)
{
    KorGError.Set(30012);
    KorGError.SetLogMsg("T");
    const std::string text(1024, 'x');
    KorGError.SetLogMsg("%s", text.c_str());
    EXPECT_EQ(
        m_directory.lines(), Lines{"<time> NONE    (106) viewer (<pid>,<tid>)  Kor_Error(126) Kor_GError::SetLogMsg -> "
                                   "Error 9003 [Kor_Err::BOUNDS] occurred. T"});
    EXPECT_EQ(KorGError.Get(), 9003u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 9003 detected. "});
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_F(ThreadError, AFormatOf1024CharactersIsTakenAndOneOf1025IsABoundsErrorInLine114)
{
    const std::string longest = "%.0s" + std::string(1020, 'x');
    KorGError.SetLogMsg(longest.c_str(), "");
    EXPECT_EQ(logged("N", 0), Lines{"Error occurred. " + std::string(1020, 'x')});

    KorGError.SetLogMsg("T");
    const std::string longer = longest + 'x'; // its text would fit
    KorGError.SetLogMsg(longer.c_str(), "");
    EXPECT_EQ(
        m_directory.lines().back(),
        "<time> NONE    (106) viewer (<pid>,<tid>)  Kor_Error(114) Kor_GError::SetLogMsg -> "
        "Error 9003 [Kor_Err::BOUNDS] occurred. T");
    EXPECT_EQ(KorGError.Get(), 9003u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 9003 detected. "});
}

TEST_F(ThreadError, AFormatAndATextThatAreBothTooLongCountAsTheFormat)
{
    const std::string text(5000, 'x');
    KorGError.SetLogMsg(text.c_str());
    EXPECT_NE(m_directory.lines().back().find("Kor_Error(114)"), std::string::npos);
}

TEST_F(ThreadError, AFormatThatIsTooLongIsABoundsErrorWhateverItsArguments)
{
    const char* volatile wild = reinterpret_cast<const char*>(0x10);
    const std::string text(1030, 'x');
    for (const std::string& format : {text + "%s", "%s" + text})
    {
        KorGError.Set(0);
        KorGError.SetLogMsg(format.c_str(), wild);
        EXPECT_EQ(KorGError.Get(), 9003u);
        EXPECT_NE(m_directory.lines().back().find("Kor_Error(114)"), std::string::npos);
    }
}

TEST_F(ThreadError, ArgumentsThatDoNotFitTheFormatLeaveTheErrorLineAsTheText)
{
    const Lines expected{"Error occurred. !!! ERROR !!! Caught exception while formatting log message - Check log line "
                         "for format discrepancy and null values. !!! ERROR !!!"};
    const char* volatile wild = reinterpret_cast<const char*>(0x10);
    KorGError.SetLogMsg("%s", wild);
    EXPECT_EQ(logged("N", 0), expected);
    const char* volatile no_format = nullptr;
    KorGError.SetLogMsg(no_format);
    EXPECT_EQ(logged("N", 0), expected);
    KorGError.SetLogMsg(wild);
    EXPECT_EQ(logged("N", 0), expected);
    EXPECT_EQ(KorGError.Get(), 0u);
}
#pragma GCC diagnostic pop

TEST_F(ThreadError, ABoundsErrorIsWrittenThoughThePackageIsSilent)
{
    m_directory.configure(TO_FILE + "Library 106 0\n");
    KorGLog.ReadFile();
    const std::string text(1024, 'x');
    KorGError.SetLogMsg("%s", text.c_str());
    EXPECT_EQ(m_directory.lines().size(), 1u);
}

// The lines ----------------------------------------------------------------------
TEST_F(ThreadError, AnErrorThatOccurredIsWrittenAndBecomesTheThreads)
{
    errno = 2;
    KorGError.Set(5);
    KorGError.SetLogMsg("T");
    EXPECT_EQ(logged("N", 30012), Lines{"Error 30012 [N] occurred. T"});
    EXPECT_EQ(KorGError.Get(), 30012u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. "});
}

TEST_F(ThreadError, AnErrorThatIsErrnoIsExplained)
{
    KorGError.SetLogMsg("T");
    errno = 2;
    EXPECT_EQ(logged("ENOENT", 2), Lines{"Errno 2 [ENOENT - No such file or directory] occurred. T"});
    EXPECT_EQ(errno, 2);
    EXPECT_EQ(KorGError.Get(), 2u);
    errno = 3;
    EXPECT_EQ(logged("ENOENT", 2), Lines{"Error 2 [ENOENT] occurred. "});
}

TEST_F(ThreadError, AnErrorThatWasDetectedIsWrittenAndStays)
{
    errno = 0; // equal to the code 0, which means no error
    KorGError.Set(30012);
    KorGError.SetLogMsg("T");
    EXPECT_EQ(logged("not used", 0), Lines{"Error 30012 detected. T"});
    EXPECT_EQ(logged(nullptr, 0), Lines{"Error 30012 detected. T"});
}

TEST_F(ThreadError, NoErrorIsWrittenWithItsTextWhichStays)
{
    EXPECT_EQ(logged("N", 0), Lines{"Error occurred. "});
    KorGError.SetLogMsg("T");
    EXPECT_EQ(logged("N", 0), Lines{"Error occurred. T"});
    EXPECT_EQ(logged("N", 0), Lines{"Error occurred. T"});
    EXPECT_EQ(KorGError.Get(), 0u);
}

TEST_F(ThreadError, TheLineHasTheParametersThatWereNotedLast)
{
    KorGLog.StoreParams("Kor_Image", "Load", 210, 2, 17);
    KorGError.Log("N", 30012);
    EXPECT_EQ(
        m_directory.lines(),
        Lines{"<time> CRITICAL(017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> Error 30012 [N] occurred. "});
}

TEST_F(ThreadError, ACodeBeyondTheLargestIntIsWrittenAsASignedNumber)
{
    EXPECT_EQ(logged("N", 4294967295u), Lines{"Error -1 [N] occurred. "});
    EXPECT_EQ(KorGError.Get(), 4294967295u);
}

TEST_F(ThreadError, AMissingNameIsNoHarm)
{
    EXPECT_EQ(logged(nullptr, 30012), Lines{"Error 30012 [(null)] occurred. "});
}

TEST_F(ThreadError, ATextIsNotTakenForAFormat)
{
    KorGError.SetLogMsg("%s", "100%d%s%n");
    EXPECT_EQ(logged("%s", 30012), Lines{"Error 30012 [%s] occurred. 100%d%s%n"});
}

TEST_F(ThreadError, ADestinationMaySetTheErrorWhileItIsLogged)
{
    RecordingDestination nested(
        [](Kor_LogMTVars&)
        {
            KorGError.Set(5);
            KorGError.SetLogMsg("from the destination");
        });
    KorGLog.RegisterLogDestination(&nested);
    KorGError.SetLogMsg("T");
    EXPECT_EQ(logged("N", 30012), Lines{"Error 30012 [N] occurred. T"});
    KorGLog.UnregisterLogDestination(&nested);
    EXPECT_EQ(KorGError.Get(), 30012u);
    EXPECT_EQ(logged("N", 0), Lines{"Error 30012 detected. "});
}

TEST_F(ThreadError, TheThreadsSystemErrorsStayAsTheyWere)
{
    const auto keeps = [](auto call)
    {
        ::SetLastError(4711);
        errno = 17;
        call();
        return ::GetLastError() == 4711 && errno == 17;
    };
    EXPECT_TRUE(keeps([] { KorGError.Get(); }));
    EXPECT_TRUE(keeps([] { KorGError.Set(30012); }));
    EXPECT_TRUE(keeps([] { KorGError.Get(); }));
    EXPECT_TRUE(keeps([] { KorGError.GetPackage(); }));
    EXPECT_TRUE(keeps([] { KorGError.SetLogMsg("%s", "T"); }));
    EXPECT_TRUE(keeps([] { KorGError.Log("N", 30012); }));
    EXPECT_TRUE(keeps([] { KorGError.Log("N", 0); }));
    EXPECT_TRUE(keeps([] { KorGError.ResetLogMsg(); }));
    on_another_thread([&] { EXPECT_TRUE(keeps([] { KorGError.Set(1); })); }); // the thread's first
}

// Values -------------------------------------------------------------------------
TEST(ErrorValue, StartsWithNoErrorAndNoText)
{
    const Kor_ErrorValue none;
    EXPECT_EQ(none.value, 0u);
    EXPECT_EQ(none.logMsg, nullptr);
}

TEST(ErrorValue, ACopyHasATextOfItsOwn)
{
    Kor_ErrorValue first;
    first.value = 30012;
    first.logMsg = ::_strdup("T");
    Kor_ErrorValue copy(first);
    EXPECT_EQ(copy.value, 30012u);
    EXPECT_STREQ(copy.logMsg, "T");
    EXPECT_NE(copy.logMsg, first.logMsg);
    first.ResetLogMsg();
    EXPECT_EQ(first.logMsg, nullptr);
    EXPECT_EQ(first.value, 30012u);
    EXPECT_STREQ(copy.logMsg, "T");
    EXPECT_EQ(Kor_ErrorValue(first).logMsg, nullptr);
}

TEST(ErrorValue, AssignmentFreesTheOldTextAndCopiesTheNew)
{
    Kor_ErrorValue first;
    first.value = 1;
    first.logMsg = ::_strdup("first");
    Kor_ErrorValue second;
    second.value = 2;
    second.logMsg = ::_strdup("second");
    Hook<freeImport> frees;
    ASSERT_TRUE(frees.installed());
    second = first;
    EXPECT_EQ(frees.calls(), 1);
    EXPECT_EQ(second.value, 1u);
    EXPECT_STREQ(second.logMsg, "first");
    EXPECT_NE(second.logMsg, first.logMsg);
}

TEST(ErrorValue, AssignedToItselfAValueStays)
{
    Kor_ErrorValue value;
    value.value = 1;
    value.logMsg = ::_strdup("T");
    const Kor_ErrorValue& same = value;
    value = same;
    EXPECT_EQ(value.value, 1u);
    EXPECT_STREQ(value.logMsg, "T");
}

TEST(ErrorValue, WithoutMemoryACopyHasNoText)
{
    Kor_ErrorValue first;
    first.value = 1;
    first.logMsg = ::_strdup("T");
    const Hook<_strdupImport> hook([](const char*) -> char* { return nullptr; });
    ASSERT_TRUE(hook.installed());
    const Kor_ErrorValue copy(first);
    EXPECT_EQ(copy.value, 1u);
    EXPECT_EQ(copy.logMsg, nullptr);
    EXPECT_EQ(hook.calls(), 1);
}

// Threads ------------------------------------------------------------------------
TEST(ThreadErrors, EachOfManyThreadsSeesItsOwnErrorAlone)
{
    std::atomic<int> wrong{0};
    run_on_threads(
        8,
        [&](int number)
        {
            const auto base = static_cast<unsigned long>(number) * 10000;
            for (unsigned long i = 0; i < 2000; ++i)
            {
                if (KorGError.Get() != (i == 0 ? 0 : base + i - 1))
                    ++wrong;
                KorGError.Set(base + i);
                KorGError.SetLogMsg("%lu", base + i);
                if (KorGError.Get() != base + i || KorGError.GetPackage() != base / 10000)
                    ++wrong;
            }
        });
    EXPECT_EQ(wrong, 0);
}

TEST(ThreadErrors, TenThousandThreadsLeaveNothingBehind)
{
    on_another_thread([] { KorGError.Set(1); }); // what is set up once
    std::atomic<int> live{0};
    std::atomic<int> taken{0};
    {
        Hook<mallocImport>* mallocs = nullptr;
        Hook<_strdupImport>* strdups = nullptr;
        Hook<freeImport>* frees = nullptr;
        Hook<mallocImport> malloc_hook(
            [&](std::size_t size)
            {
                ++live, ++taken;
                return mallocs->original(size);
            });
        mallocs = &malloc_hook;
        Hook<_strdupImport> strdup_hook(
            [&](const char* text)
            {
                ++live, ++taken;
                return strdups->original(text);
            });
        strdups = &strdup_hook;
        Hook<freeImport> free_hook(
            [&](void* memory)
            {
                if (memory != nullptr)
                    --live;
                frees->original(memory);
            });
        frees = &free_hook;
        ASSERT_TRUE(malloc_hook.installed() && strdup_hook.installed() && free_hook.installed());
        for (int round = 0; round < 200; ++round)
        {
            HANDLE threads[50];
            for (HANDLE& thread : threads)
                thread = ::CreateThread(
                    nullptr, 64 * 1024,
                    [](void*) -> DWORD
                    {
                        KorGError.Set(30012);
                        KorGError.SetLogMsg("a text of a thread, %d", 1);
                        KorGError.SetLogMsg("a text of a thread, %d", 2);
                        return 0;
                    },
                    nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
            for (const HANDLE thread : threads)
            {
                EXPECT_EQ(::WaitForSingleObject(thread, 30000), WAIT_OBJECT_0);
                ::CloseHandle(thread);
            }
        }
    }
    EXPECT_EQ(taken, 10000 * 3); // a value and two texts each
    EXPECT_EQ(live, 0);
}

TEST(ThreadErrors, WithoutMemoryForAThreadsErrorNothingIsKeptAndNothingIsThrown)
{
    const LogDirectory directory;
    Kor_LogFile& log = KorGLog;
    log.Open("test.log", "viewer", false);
    on_another_thread(
        [&]
        {
            log.StoreParams("Kor_Image", "Load", 210, 3, 17); // what the log itself keeps for the thread
            const Hook<FlsSetValueImport> hook([](DWORD, void*) { return FALSE; });
            ASSERT_TRUE(hook.installed());
            KorGError.Set(30012);
            KorGError.SetLogMsg("T");
            EXPECT_EQ(KorGError.Get(), 0u);
            KorGError.Log("N", 30012);
            EXPECT_EQ(KorGError.Get(), 0u);
            EXPECT_EQ(hook.calls(), 3);
        });
    EXPECT_EQ(
        directory.lines(),
        Lines{"<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> Error 30012 [N] occurred. "});
}

TEST(ThreadErrors, WithoutMemoryForATextTheErrorHasNone)
{
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    KorGError.SetLogMsg("old");
    {
        const Hook<_strdupImport> hook([](const char*) -> char* { return nullptr; });
        ASSERT_TRUE(hook.installed());
        KorGError.SetLogMsg("new");
    }
    KorGError.Log("N", 30012);
    EXPECT_NE(directory.text().find("Error 30012 [N] occurred. \n"), std::string::npos);
}

TEST(ThreadErrors, AfterItsEndTheObjectForgetsErrorsAtOnce)
{
    alignas(Kor_GError) unsigned char place[sizeof(Kor_GError)];
    auto* const error = new (place) Kor_GError;
    error->Set(30012);
    EXPECT_EQ(error->Get(), 30012u);
    error->~Kor_GError();
    error->Set(30013);
    error->SetLogMsg("T");
    error->ResetLogMsg();
    EXPECT_EQ(error->Get(), 0u);
    EXPECT_EQ(error->GetPackage(), 0u);
}

TEST(ThreadErrors, TheEndOfTheObjectFreesTheErrorsOfAllThreads)
{
    alignas(Kor_GError) unsigned char place[sizeof(Kor_GError)];
    auto* const error = new (place) Kor_GError;
    const NamedEvent set(unique_name("set"));
    const NamedEvent finish(unique_name("finish"));
    BoundedThread other(
        [&]
        {
            error->SetLogMsg("other");
            set.set();
            finish.wait();
        });
    ASSERT_TRUE(set.wait());
    error->SetLogMsg("own");
    int freed = 0;
    {
        Hook<freeImport>* frees = nullptr;
        Hook<freeImport> hook(
            [&](void* memory)
            {
                if (memory != nullptr)
                    ++freed;
                frees->original(memory);
            });
        frees = &hook;
        error->~Kor_GError();
    }
    finish.set();
    other.join();
    EXPECT_EQ(freed, 4); // of two threads, a value and a text each
}

TEST(ThreadErrors, ABoundsErrorBecomesTheOneOfTheProcesssObject)
{
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    Kor_GError other;
    other.Set(7);
    other.SetLogMsg("%s", std::string(1024, 'x').c_str());
    EXPECT_EQ(other.Get(), 7u);
    EXPECT_EQ(KorGError.Get(), 9003u);
}

TEST(ThreadErrors, SeveralObjectsKeepSeparateErrors)
{
    Kor_GError other;
    KorGError.Set(1);
    other.Set(2);
    EXPECT_EQ(KorGError.Get(), 1u);
    EXPECT_EQ(other.Get(), 2u);
}
} // namespace
