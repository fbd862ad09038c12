// console.h - what LevelSync prints, and nothing else on the same screen.

#ifndef LEVELSYNC_CONSOLE_H
#define LEVELSYNC_CONSOLE_H

#include <string>
#include <string_view>

namespace levelsync
{
enum class Style
{
    PLAIN,
    STRONG,  ///< headings
    GOOD,    ///< green
    BAD,     ///< red
    CAREFUL, ///< yellow
    FAINT
};

/// The program's standard output and standard error. All texts are UTF-8.
///
/// While one exists, what anything else in the process prints to these two (the library warns on standard output of
/// what it finds in a level file) goes nowhere. Colours appear on a terminal alone, and not where NO_COLOR is set.
class Console
{
public:
    Console();

    /// Prints nothing: what would go to standard output and to standard error is kept in two texts, which live as long.
    Console(std::string& out, std::string& err);

    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    void print(std::string_view text, Style style = Style::PLAIN);

    /// The same with a line end.
    void line(std::string_view text = {}, Style style = Style::PLAIN);

    /// To standard error, where a person looks when a program has taken the output.
    void error(std::string_view text, Style style = Style::PLAIN);

    /// Replaces the last line on a terminal; prints nothing elsewhere.
    void progress(std::string_view text);

    /// Hands on what was printed. Happens at the end by itself.
    void flush();

    bool is_terminal() const noexcept { return m_out.is_terminal; }

    /// Columns of the terminal, 0 where there is none.
    int width() const noexcept;

private:
    struct Stream
    {
        void* handle = nullptr;
        std::string* kept = nullptr; // instead of the handle
        bool is_terminal = false;
        unsigned short colours = 0;
    };

    static Stream take(unsigned long which, int descriptor);
    void write(const Stream& to, std::string_view text, Style style) const;

    Stream m_out;
    Stream m_err;
    bool m_coloured;
    std::string m_waiting; // of standard output
    std::size_t m_progress_length = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_CONSOLE_H
