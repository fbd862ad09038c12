// A program for the ABI of Microsoft's compiler that crashes as its argument says, with the handlers of lumlog_crash.hpp.

#include "lumlog_crash.hpp"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{
class Page
{
public:
    Page() { draw_all(); }
    virtual ~Page() = default;

protected:
    virtual void draw() = 0;
    void draw_all() { draw(); }
};

class Image : public Page
{
    void draw() override {}
};

void throw_on_a_thread()
{
    std::thread(
        []
        {
            lum::prepare_thread_for_crashes();
            throw std::runtime_error("page 2 is torn");
        })
        .join();
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || lum_open("crash.log", "crash") != LUM_OK || !lum::install_crash_handlers())
        return 1;
    const std::string way = argv[1];
    if (way == "throw")
        throw_on_a_thread();
    else if (way == "abort")
        std::abort();
    else if (way == "virtual")
        Image();
    return 0; // not reached
}
