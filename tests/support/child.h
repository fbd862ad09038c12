// child.h - runs a named body of this test program in a process of its own.

#ifndef KOR_TESTS_CHILD_H
#define KOR_TESTS_CHILD_H

#include <string>
#include <utility>
#include <vector>

/// Defines a body that run_child can start by name: KOR_CHILD(writes_a_line) { ...; return 0; }
/// The body sees its arguments as `args`, a std::vector<std::string>. It runs before GoogleTest is
/// set up, so it reports by its exit code and by what it prints.
#define KOR_CHILD(name)                                                                                      \
    static int kor_child_##name(const std::vector<std::string>& args);                                       \
    [[maybe_unused]] static const ChildRegistration kor_child_registration_##name(#name, &kor_child_##name); \
    static int kor_child_##name([[maybe_unused]] const std::vector<std::string>& args)

using ChildBody = int (*)(const std::vector<std::string>& args);

/// Makes a body known under its name. Used through KOR_CHILD.
struct ChildRegistration
{
    ChildRegistration(const char* name, ChildBody body);
};

/// The body of that name, null when there is none.
ChildBody find_child_body(const std::string& name);

/// All texts are UTF-8.
struct ChildOptions
{
    /// Added to the child's environment; an empty value removes the variable. The child inherits this
    /// process's environment without any PRISMATE_* and KORAL_* variable. KORAL_LOG_DEVELOP is "1",
    /// which keeps it off the machine-wide block, unless it is named here.
    std::vector<std::pair<std::string, std::string>> environment;
    std::string directory; ///< current directory; empty: this process's
    std::vector<std::string> arguments;
    unsigned timeout_ms = 30000; ///< of run_child
    std::string program;         ///< path of another program, which is then started without --child; empty: this one
};

/// What became of a child. out and err hold the exact bytes that it wrote: a text stream of the C
/// runtime ends its lines with "\r\n". See text_of in log_lines.h.
struct ChildResult
{
    bool finished = false;                ///< false: it was still running at the end of the wait, or never ran
    unsigned long exit_code = 0xFFFFFFFF; ///< a crash leaves its exception code here, such as 0xC0000005
    std::string out;
    std::string err;
};

/// A child process. It and all that it starts end with this object at the latest.
class Child
{
public:
    explicit Child(std::string name, ChildOptions options = {});
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    /// Waits until the child has come as far as its main function or has ended. A process that could not be
    /// created, or that the system leaves standing before that, is started again, and standard error says so:
    /// Wine now and then creates one that never runs, which is no answer to what a test asks. A child with a
    /// program of its own gives no sign and counts as begun.
    void ensure_begun();
    unsigned long pid() const noexcept { return m_pid; }

    /// Waits for the end, at most so long. A child that is still running goes on.
    ChildResult wait(unsigned timeout_ms) const;

    /// Ends the process at once, with exit code 0xDEAD.
    void kill() const noexcept;

private:
    void start();
    void end() noexcept;

    std::string m_name;
    ChildOptions m_options;
    void* m_job = nullptr;
    void* m_process = nullptr;
    void* m_out = nullptr;
    void* m_err = nullptr;
    void* m_begun = nullptr;
    unsigned long m_pid = 0;
};

/// To be called first of all in a process that has been started as a child.
void tell_that_child_has_begun();

/// Starts a body, ensures that it has begun, waits for its end, and kills it when it is not over in time.
ChildResult run_child(const char* name, const ChildOptions& options = {});

#endif // KOR_TESTS_CHILD_H
