// Levels and configurations for C.

#include <windows.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "Kor/configuration_folder.h"
#include "Kor_LogFile.h"
#include "c/c_texts.h"
#include "c/log_access.h"
#include "win/owned.h"
#include "win/path.h"
#include "win/utf8.h"

using kor::c::contained;
using kor::c::give;
using kor::c::name_of;
using kor::c::NarrowName;

struct lum_conf
{
    Kor_LogConf conf;
};

namespace
{
constexpr int LAST_LEVEL = LUM_DEBUG;

struct CommentsFree
{
    void operator()(char** comments) const { Kor_LogFile::CleanComments(comments); }
};

bool is_package(int package) noexcept { return Kor_LogConf::IsPackageNoLegal(package); }
bool is_level(int level) noexcept { return level >= 0 && level <= LAST_LEVEL; }
bool is_output(int output) noexcept { return output >= LUM_TO_STDERR && output <= LUM_TO_FILE; }

/// The path of a `logger` file, the folder's where none is named.
std::wstring level_file(const char* path)
{
    return path == nullptr ? kor::configuration_folder() + L"\\logger" : kor::win::wide_of_utf8(name_of(path));
}

bool is_readable(const wchar_t* path)
{
    constexpr DWORD ANY = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return static_cast<bool>(kor::win::OwnedFile(kor::win::open_file(path, GENERIC_READ, ANY, OPEN_EXISTING)));
}

/// What is read of a file must fit into a word of its lines.
bool is_package_name(std::string_view name) noexcept
{
    return name.size() < Kor_LogConf::PACKAGE_NAME_SIZE && name.find_first_of(" \t\r\n\v\f") == std::string_view::npos;
}

/// Changes a configuration and gives it a new stamp, so that a log which uses it looks at it again.
template <class Change>
int change(lum_conf* conf, bool legal, Change make)
{
    if (conf == nullptr || !legal)
        return LUM_FAILED;
    return contained(
        LUM_FAILED,
        [&]
        {
            make(conf->conf);
            conf->conf.GenerateChangeCount();
            return LUM_OK;
        });
}
} // namespace

int lum_set_level(int package, int level, int publish)
{
    if (!is_level(level))
        return LUM_FAILED;
    return contained(LUM_FAILED, [=] { return KorGLog.SetCustomLogLevel(package, level, publish != 0); });
}

int lum_set_output(int output, int publish)
{
    if (!is_output(output))
        return LUM_FAILED;
    return contained(
        LUM_FAILED,
        [=]
        {
            const Kor_LogConf* const conf = KorGLog.GetConf();
            if (conf == nullptr)
                return LUM_FAILED;
            const int level_as_it_is = conf->GetPackageDefaultLogLevel(0);
            return KorGLog.SetCustomLogLevel(static_cast<Kor_LogConf::Output>(output), 0, level_as_it_is, publish != 0);
        });
}

int lum_publish_file(const char* path)
{
    return contained(
        LUM_FAILED,
        [=]
        {
            // A missing file would publish the defaults.
            const std::wstring file = level_file(path);
            if (!is_readable(file.c_str()))
                return LUM_FAILED;
            const auto fresh = std::make_unique<Kor_LogConf>();
            Kor_LogFile::ReadFile(file.c_str(), *fresh);
            return Kor_LogFile::UpdateSMFromConf(*fresh);
        });
}

// Configurations --------------------------------------------------------------------------------------
lum_conf* lum_conf_read(const char* path)
{
    return contained(
        static_cast<lum_conf*>(nullptr),
        [=]() -> lum_conf*
        {
            auto conf = std::make_unique<lum_conf>();
            return Kor_LogFile::ReadFile(level_file(path).c_str(), conf->conf) == 0 ? conf.release() : nullptr;
        });
}

lum_conf* lum_conf_current(void)
{
    return contained(
        static_cast<lum_conf*>(nullptr),
        []() -> lum_conf*
        {
            auto conf = std::make_unique<lum_conf>();
            if (const Kor_LogConf* const used = KorGLog.GetConf())
                conf->conf = *used;
            return conf.release();
        });
}

int lum_name_package(int package, const char* name)
{
    return contained(LUM_FAILED, [=] { return Kor_LogFile::NamePackage(package, name); });
}

lum_conf* lum_conf_default(void)
{
    return contained(static_cast<lum_conf*>(nullptr), [] { return new lum_conf; });
}

int lum_isolate(const lum_conf* conf)
{
    return contained(
        LUM_FAILED, [=]
        { return Kor_LogFileForC::isolate(KorGLog, conf == nullptr ? nullptr : &conf->conf) ? LUM_OK : LUM_FAILED; });
}

void lum_conf_free(lum_conf* conf)
{
    contained(
        [=]
        {
            if (conf != nullptr && KorGLog.GetLocalConf() == &conf->conf)
                KorGLog.SetLocalConf(nullptr);
            delete conf;
        });
}

int lum_conf_output(const lum_conf* conf) { return conf == nullptr ? LUM_FAILED : conf->conf.GetOutput(); }

int lum_conf_set_output(lum_conf* conf, int output)
{
    return change(
        conf, is_output(output),
        [=](Kor_LogConf& changed) { changed.SetOutput(static_cast<Kor_LogConf::Output>(output)); });
}

unsigned int lum_conf_size_limit(const lum_conf* conf)
{
    return conf == nullptr ? 0 : static_cast<unsigned int>(conf->conf.GetSizeLimitInMb());
}

int lum_conf_set_size_limit(lum_conf* conf, unsigned int megabytes)
{
    return change(conf, true, [=](Kor_LogConf& changed) { changed.SetSizeLimitInMb(megabytes); });
}

int lum_conf_level(const lum_conf* conf, int package)
{
    return conf == nullptr || !is_package(package) ? LUM_FAILED : conf->conf.GetPackageDefaultLogLevel(package);
}

int lum_conf_set_level(lum_conf* conf, int package, int level)
{
    return change(
        conf, is_package(package) && is_level(level),
        [=](Kor_LogConf& changed) { changed.SetPackageDefaultLogLevel(package, static_cast<unsigned char>(level)); });
}

size_t lum_conf_name(const lum_conf* conf, int package, char* buffer, size_t size)
{
    return give(conf == nullptr ? "" : name_of(conf->conf.GetPackageName(package)), buffer, size);
}

int lum_conf_set_name(lum_conf* conf, int package, const char* name)
{
    return change(
        conf, is_package(package) && is_package_name(name_of(name)),
        [=](Kor_LogConf& changed) { changed.SetPackageName(package, name == nullptr ? "" : name); });
}

size_t lum_conf_rules(const lum_conf* conf, int package, char* buffer, size_t size)
{
    if (conf == nullptr || !is_package(package))
        return give("", buffer, size);
    return contained(
        std::size_t{0}, [=] { return give(conf->conf.ruleTables[package].ToString().data(), buffer, size); });
}

int lum_conf_set_rules(lum_conf* conf, int package, const char* rules)
{
    return change(
        conf, is_package(package),
        [=](Kor_LogConf& changed) { changed.GetRuleTable(package).ParseRules(RWCString(rules)); });
}

int lum_conf_write(const lum_conf* conf, const char* path, const char* comments_of)
{
    if (conf == nullptr || path == nullptr)
        return LUM_FAILED;
    return contained(
        LUM_FAILED,
        [=]
        {
            std::unique_ptr<char*, CommentsFree> comments;
            if (comments_of != nullptr)
                comments.reset(Kor_LogFile::ReadCommentsFromFile(NarrowName(comments_of).get()));
            return Kor_LogFile::DumpToLoggerFile(conf->conf, NarrowName(path).get(), comments.get()) ? LUM_OK
                                                                                                     : LUM_FAILED;
        });
}

int lum_conf_use_locally(lum_conf* conf)
{
    return contained(
        LUM_FAILED,
        [=]
        {
            KorGLog.SetLocalConf(conf == nullptr ? nullptr : &conf->conf);
            return LUM_OK;
        });
}
