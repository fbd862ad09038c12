// destination.cpp - what is written also goes to a second file, and to an object of the program's own.

#include <cstdio>
#include <string>
#include <vector>

#include <Kor_LogFile.h>

namespace
{
constexpr int PACKAGE_LOADER = 310;

/// Keeps the messages of level 3 and worse, as for a window that shows them. Called with the log's lock
/// held, so it needs none of its own.
class RecentErrors : public Kor_LogDestBase
{
public:
    struct Message
    {
        int level;
        int package;
        std::string headline;
        std::string text;
    };

    int LogMessage(Kor_LogMTVarsPtr context, bool bare, const char* text, unsigned int) override
    {
        if (!bare && context->m_level <= KOR_LEVEL_ERROR)
            m_messages.push_back({context->m_level, context->m_package, context->AsStringFull(false), text});
        return 0;
    }

    const std::vector<Message>& messages() const { return m_messages; }

private:
    std::vector<Message> m_messages;
};
} // namespace

int main()
{
    KorGLog.Open("destination.log", "destination");

    // They are ours: they must live until they are unregistered.
    Kor_LogDestFile copy("copy.log");
    RecentErrors errors;
    KorGLog.RegisterLogDestination(&copy);
    KorGLog.RegisterLogDestination(&errors);

    KOR_LOG(KorGLog, KOR_LEVEL_ERROR, PACKAGE_LOADER, "cannot read %s", "front.png");
    KOR_LOG(KorGLog, KOR_LEVEL_WARNING, PACKAGE_LOADER, "trying the archive instead");

    KorGLog.UnregisterLogDestination(&errors);
    KorGLog.UnregisterLogDestination(&copy);
    for (const RecentErrors::Message& message : errors.messages())
        std::printf(
            "level %d, package %d: %s    headline: %s\n", message.level, message.package, message.text.c_str(),
            message.headline.c_str());
    return 0;
}
