// recording_destination.h - a log destination that keeps what it is given.

#ifndef KOR_TESTS_RECORDING_DESTINATION_H
#define KOR_TESTS_RECORDING_DESTINATION_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"

struct RecordedMessage
{
    bool bare;
    std::string text;
    unsigned int length;
    int level;
    int package;
    const void* file; ///< the pointer that the context held, for its identity
    std::string file_name;
    std::string function;
    int line;
};

/// For one thread. `then`, when given, runs at the end of every LogMessage with the context's object.
class RecordingDestination : public Kor_LogDestBase
{
public:
    explicit RecordingDestination(std::function<void(Kor_LogMTVars&)> then = nullptr) : m_then(std::move(then)) {}

    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int length) override
    {
        messages.push_back(
            {bare, text, length, context->m_level, context->m_package, context->m_file, context->m_file,
             context->m_function == nullptr ? "(null)" : context->m_function, context->m_line});
        if (m_then)
            m_then(*context.operator->());
        return 0;
    }

    std::vector<RecordedMessage> messages;

private:
    std::function<void(Kor_LogMTVars&)> m_then;
};

/// Lets a test look at the calling thread's context of `log`, or change it, by way of one bare message
/// that goes through all outputs.
inline void with_context(Kor_LogFile& log, const std::function<void(Kor_LogMTVars&)>& use)
{
    RecordingDestination look(use);
    log.RegisterLogDestination(&look);
    char text[] = "a look at the context\n";
    log.SendLogNoLimit(KOR_MSG_NO_HEADLINE, text, static_cast<int>(sizeof text - 1));
    log.UnregisterLogDestination(&look);
}

#endif // KOR_TESTS_RECORDING_DESTINATION_H
