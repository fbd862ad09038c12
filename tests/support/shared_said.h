// shared_said.h - what a host that is going to be killed has said, for who looks whether it is there.

#ifndef KOR_TESTS_SHARED_SAID_H
#define KOR_TESTS_SHARED_SAID_H

#include <windows.h>

#include <atomic>
#include <string>

/// How many lines each of its threads has said.
struct Said
{
    static constexpr int THREADS = 8;

    std::atomic<long long> lines[THREADS];
};

/// That, in memory that outlives the host.
class SharedSaid
{
public:
    static constexpr int THREADS = Said::THREADS;

    explicit SharedSaid(const std::string& name)
        : m_mapping(::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Said), name.c_str())),
          m_said(static_cast<Said*>(::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0)))
    {
    }
    SharedSaid(const SharedSaid&) = delete;
    SharedSaid& operator=(const SharedSaid&) = delete;
    ~SharedSaid()
    {
        ::UnmapViewOfFile(m_said);
        ::CloseHandle(m_mapping);
    }

    Said& said() const { return *m_said; }
    long long total() const
    {
        long long sum = 0;
        for (const auto& lines : m_said->lines)
            sum += lines;
        return sum;
    }

private:
    HANDLE m_mapping;
    Said* m_said;
};

#endif // KOR_TESTS_SHARED_SAID_H
