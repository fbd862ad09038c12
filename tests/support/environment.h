// environment.h - a variable of this process's environment for the length of a scope.

#ifndef KOR_TESTS_ENVIRONMENT_H
#define KOR_TESTS_ENVIRONMENT_H

#include <windows.h>

#include <cstdlib>
#include <string>

/// Sets a variable, or removes it when the value is empty, for Windows and for the C runtime, and
/// puts back what was there. For variables that the library reads when it is used; those that it
/// reads when it is loaded need a child process.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const std::string& value) : m_name(name)
    {
        char before[4096] = {};
        ::GetEnvironmentVariableA(name, before, sizeof before);
        m_before = before;
        assign(value);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { assign(m_before); }

private:
    void assign(const std::string& value) const
    {
        ::_putenv((m_name + '=' + value).c_str());
        ::SetEnvironmentVariableA(m_name.c_str(), value.empty() ? nullptr : value.c_str());
    }

    std::string m_name;
    std::string m_before;
};

#endif // KOR_TESTS_ENVIRONMENT_H
