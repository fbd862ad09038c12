#include "Kor/minidump.h"

#include <cwchar>
#include <utility>

#include "win/guarded_call.h"
#include "win/path.h"

namespace kor
{
// Modules ------------------------------------------------------------------------------------------------------------
void ModuleList::make_room(std::size_t count)
{
    if (m_spare.size() >= count)
        return;
    const std::size_t characters = count * MAX_PATH;   // most paths take a quarter of that
    m_path_room.emplace_back(new wchar_t[characters]); // not touched, so it takes no memory of the machine
    m_path_at = m_path_room.back().get();
    m_path_end = m_path_at + characters;
    m_spare.resize(count);
}

void ModuleList::begin_dump() noexcept
try
{
    const std::size_t before = std::exchange(m_in_front, m_modules.size());
    make_room(m_modules.size() - before);
}
catch (...) // no memory: the dump has the modules all the same
{
    return;
}

void ModuleList::add(const MINIDUMP_MODULE_CALLBACK& module) noexcept
{
    if (m_spare.empty())
        return;
    m_modules.splice(m_modules.end(), m_spare, m_spare.begin());
    m_modules.back() = module;
    m_modules.back().FullPath = module.FullPath == nullptr ? nullptr : copy_of(module.FullPath);
}

wchar_t* ModuleList::copy_of(const wchar_t* path) noexcept
{
    const std::size_t size = std::wcslen(path) + 1;
    if (size > static_cast<std::size_t>(m_path_end - m_path_at))
        return nullptr;
    wchar_t* const copy = std::wmemcpy(m_path_at, path, size);
    m_path_at += size;
    return copy;
}

// Minidumps ----------------------------------------------------------------------------------------------------------
namespace
{
/// The file of a minidump. It is closed whatever its handle is, also when it could not be created.
class DumpFile
{
public:
    explicit DumpFile(const wchar_t* path) noexcept : m_handle(win::open_file(path, GENERIC_WRITE, 0, CREATE_ALWAYS)) {}
    DumpFile(const DumpFile&) = delete;
    DumpFile& operator=(const DumpFile&) = delete;
    ~DumpFile() { ::CloseHandle(m_handle); }

    HANDLE handle() const noexcept { return m_handle; }

private:
    HANDLE m_handle;
};
} // namespace

struct DumpWriter::Job
{
    WriteDump* write;
    HANDLE file;
    const DumpSubject& subject;
    MINIDUMP_USER_STREAM_INFORMATION* comments; // null: none
    BOOL is_written;
};

DumpWriter::DumpWriter() noexcept
    : m_library(win::load_system_library(L"dbghelp.dll")),
      m_write(win::find_function<WriteDump>(m_library.get(), "MiniDumpWriteDump"))
{
}

/// Runs guarded.
void DumpWriter::run(void* argument)
{
    auto& job = *static_cast<Job*>(argument);
    job.is_written = job.write(
        job.subject.process, job.subject.process_id, job.file, MiniDumpNormal, job.subject.crash, job.comments,
        job.subject.callback);
}

bool DumpWriter::write(const wchar_t* path, const DumpSubject& subject) const noexcept
{
    const DumpFile file(path);
    // A handle that means "failed" is none of null: the dump then fails by itself.
    if (file.handle() == nullptr || m_write == nullptr)
        return false;
    MINIDUMP_USER_STREAM comment{};
    comment.Type = CommentStreamA;
    comment.BufferSize = static_cast<ULONG>(subject.comment.size() + 1);
    comment.Buffer = const_cast<char*>(subject.comment.data());
    MINIDUMP_USER_STREAM_INFORMATION comments{1, &comment};
    Job job{m_write, file.handle(), subject, subject.comment.empty() ? nullptr : &comments, FALSE};
    LARGE_INTEGER size{};
    return kor_guarded_call(&run, &job) == 0 && job.is_written && file.handle() != INVALID_HANDLE_VALUE &&
           ::GetFileSizeEx(file.handle(), &size) && size.QuadPart != 0; // Wine says that all went well, whatever it did
}
} // namespace kor
