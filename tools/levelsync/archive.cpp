#include "archive.h"

#include <zip.h>

#include <algorithm>
#include <utility>

#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr char NOTHING_WRITTEN[] = "Nothing was written. Give another place, as in LevelSync collect D:\\case.zip.";
constexpr double STEP = 0.01; // of what is done, between two questions whether to stop

/// An error of the library, with its text while it is needed.
class ZipError
{
public:
    ZipError() { ::zip_error_init(&m_error); }
    ZipError(const ZipError&) = delete;
    ZipError& operator=(const ZipError&) = delete;
    ~ZipError() { ::zip_error_fini(&m_error); }

    zip_error_t* get() noexcept { return &m_error; }
    std::string text() { return ::zip_error_strerror(&m_error); }

private:
    zip_error_t m_error{};
};

[[noreturn]] void fail(const std::string& name, const std::string& why)
{
    throw Failure(name + " cannot be written: " + why + '.', NOTHING_WRITTEN);
}
} // namespace

/// What the library reads a file from.
struct Archive::Entry
{
    kor::core::LogBytes& bytes;
    std::uint64_t size;
    Time modified;
    std::uint64_t at = 0;

    zip_int64_t read(void* to, zip_uint64_t length)
    {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(length, size - at));
        const std::size_t count = wanted == 0 ? 0 : bytes.read(at, static_cast<char*>(to), wanted);
        at += count;
        return static_cast<zip_int64_t>(count);
    }

    /// Without the size: a log that is cleared meanwhile has fewer bytes than were counted.
    zip_int64_t tell(void* to) const
    {
        auto* const facts = static_cast<zip_stat_t*>(to);
        ::zip_stat_init(facts);
        facts->valid = ZIP_STAT_MTIME;
        facts->mtime = static_cast<time_t>(modified / 1'000);
        return sizeof *facts;
    }

    static zip_int64_t answer(void* entry, void* data, zip_uint64_t length, zip_source_cmd_t command)
    {
        auto& self = *static_cast<Entry*>(entry);
        switch (command)
        {
        case ZIP_SOURCE_OPEN:
            self.at = 0;
            return 0;
        case ZIP_SOURCE_READ:
            return self.read(data, length);
        case ZIP_SOURCE_STAT:
            return self.tell(data);
        case ZIP_SOURCE_ERROR: // none of these fails
            std::fill_n(static_cast<int*>(data), 2, 0);
            return 2 * sizeof(int);
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_READABLE;
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_FREE:
            return 0;
        default:
            return -1;
        }
    }
};

void Archive::Discard::operator()(zip* archive) const noexcept { ::zip_discard(archive); }

Archive::Archive(const std::wstring& path) : m_name(shown(utf8(path)))
{
    ZipError error;
    zip_source_t* const file = ::zip_source_win32w_create(path.c_str(), 0, 0, error.get());
    if (file == nullptr)
        fail(m_name, error.text());
    m_archive.reset(::zip_open_from_source(file, ZIP_CREATE | ZIP_TRUNCATE, error.get()));
    if (m_archive != nullptr)
        return;
    ::zip_source_free(file);
    fail(m_name, error.text());
}

Archive::~Archive() = default;

void Archive::add(const std::string& name, kor::core::LogBytes& bytes, std::uint64_t size, Time modified)
{
    m_entries.push_back(std::unique_ptr<Entry>(new Entry{bytes, size, modified}));
    zip_source_t* const source = ::zip_source_function(m_archive.get(), &Entry::answer, m_entries.back().get());
    if (source != nullptr && ::zip_file_add(m_archive.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8) >= 0)
        return;
    ::zip_source_free(source);
    fail(m_name, ::zip_strerror(m_archive.get()));
}

void Archive::write(const Stop& stop)
{
    struct Progress
    {
        const Stop& stop;
        bool is_over = false;
    };
    Progress progress{stop};
    ::zip_register_progress_callback_with_state(
        m_archive.get(), STEP,
        [](zip_t*, double done, void* state)
        {
            auto& asked = *static_cast<Progress*>(state);
            asked.is_over = asked.is_over || asked.stop(done);
        },
        nullptr, &progress);
    ::zip_register_cancel_callback_with_state(
        m_archive.get(), [](zip_t*, void* state) { return static_cast<Progress*>(state)->is_over ? 1 : 0; }, nullptr,
        &progress);
    if (::zip_close(m_archive.get()) == 0)
    {
        static_cast<void>(m_archive.release()); // closing has freed it
        return;
    }
    if (progress.is_over)
        throw Failure("LevelSync was told to stop.", "Nothing was written.");
    fail(m_name, ::zip_strerror(m_archive.get()));
}
} // namespace levelsync
