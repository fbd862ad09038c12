// java_machine.h - a Java machine that only pretends: the whole function table of its native interface,
// which notes what is asked of it.

#ifndef KOR_TESTS_JAVA_MACHINE_H
#define KOR_TESTS_JAVA_MACHINE_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Kor/jni_types.h"

/// A string of Java, by the bytes of its modified UTF-8.
struct JavaString
{
    std::string bytes;
};

/// For one thread, as in Java. Any function that is called and should not be, and a release that does
/// not fit what was acquired, end the process.
class JavaMachine : public JNIEnv
{
public:
    JavaMachine() : JNIEnv{&m_table.used}
    {
        fill(std::make_index_sequence<FUNCTIONS>());
        m_table.used.GetStringUTFLength = &length_of;
        m_table.used.GetStringUTFChars = &acquire;
        m_table.used.ReleaseStringUTFChars = &release;
    }
    JavaMachine(const JavaMachine&) = delete;
    JavaMachine& operator=(const JavaMachine&) = delete;

    JNIEnv* env() noexcept { return this; }

    int acquired = 0; ///< successful calls of GetStringUTFChars
    int refused = 0;
    int released = 0;
    const JavaString* refuse = nullptr; ///< the string that GetStringUTFChars has no memory for
    jsize odd_length = 0;               ///< below 0: what GetStringUTFLength says

    /// The native method returns to Java, which throws what is pending.
    void return_to_java() noexcept { m_pending = false; }

    bool all_released() const noexcept { return m_live.empty() && acquired == released; }

private:
    static constexpr std::size_t FUNCTIONS = 235; // of Java 11's table

    struct Table
    {
        JavaFunctionTable used;
        void* after[FUNCTIONS - sizeof(JavaFunctionTable) / sizeof(void*)];
    };
    static_assert(offsetof(JavaFunctionTable, GetStringUTFLength) == 168 * sizeof(void*));
    static_assert(offsetof(JavaFunctionTable, GetStringUTFChars) == 169 * sizeof(void*));
    static_assert(offsetof(JavaFunctionTable, ReleaseStringUTFChars) == 170 * sizeof(void*));
    static_assert(sizeof(Table) == FUNCTIONS * sizeof(void*));

    [[noreturn]] static void end(const char* why, std::size_t number)
    {
        std::fprintf(stderr, "the Java machine was misused: %s %u\n", why, static_cast<unsigned>(number));
        std::fflush(stderr);
        std::_Exit(99);
    }

    template <std::size_t NUMBER>
    [[noreturn]] static void unexpected()
    {
        end("unexpected function", NUMBER);
    }

    template <std::size_t... NUMBERS>
    void fill(std::index_sequence<NUMBERS...>)
    {
        void* const all[] = {reinterpret_cast<void*>(&unexpected<NUMBERS>)...};
        std::memcpy(&m_table, all, sizeof all);
    }

    static jsize JNICALL length_of(JNIEnv* env, jstring text)
    {
        auto& machine = *static_cast<JavaMachine*>(env);
        machine.check_pending();
        if (text == nullptr)
            end("length of null", 0);
        return machine.odd_length < 0 ? machine.odd_length : static_cast<jsize>(text->bytes.size());
    }

    /// With an error pending, a native method may release what it has, and nothing else.
    void check_pending() const
    {
        if (m_pending)
            end("called with an error pending", 0);
    }

    static const char* JNICALL acquire(JNIEnv* env, jstring text, jboolean* is_copy)
    {
        auto& machine = *static_cast<JavaMachine*>(env);
        machine.check_pending();
        if (text == nullptr)
            end("characters of null", 0);
        if (text == machine.refuse)
        {
            machine.m_pending = true;
            ++machine.refused;
            return nullptr;
        }
        if (is_copy != nullptr)
            *is_copy = 1;
        ++machine.acquired;
        auto characters = std::vector<char>(text->bytes.begin(), text->bytes.end());
        characters.push_back('\0');
        const char* const place = characters.data();
        machine.m_live.emplace(place, std::make_pair(text, std::move(characters)));
        return place;
    }

    static void JNICALL release(JNIEnv* env, jstring text, const char* characters)
    {
        auto& machine = *static_cast<JavaMachine*>(env);
        const auto live = machine.m_live.find(characters);
        if (live == machine.m_live.end() || live->second.first != text)
            end("released what was not acquired", 0);
        // Whoever still reads it finds something else.
        std::fill(live->second.second.begin(), live->second.second.end(), '#');
        machine.m_live.erase(live);
        ++machine.released;
    }

    Table m_table;
    bool m_pending = false;
    std::map<const char*, std::pair<jstring, std::vector<char>>> m_live;
};

#endif // KOR_TESTS_JAVA_MACHINE_H
