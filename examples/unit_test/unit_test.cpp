// unit_test.cpp - a unit test of code that logs. Prints what failed, and ends with 1 then; with a test framework the checks
// are its own.

#include <cstdio>
#include <string>

#include "lumlog.hpp"
#include "lumlog_capture.hpp"

namespace
{
constexpr int PACKAGE_LOADER = 310;

// The code under test.
bool load(const std::string& name)
{
    LUM_LOG(LUM_DEBUG, PACKAGE_LOADER, "loading %s", name.c_str());
    if (name.find(".png") != std::string::npos)
        return true;
    LUM_LOG(LUM_ERROR, PACKAGE_LOADER, "%s is no image", name.c_str());
    return false;
}

int failures = 0;

void check(bool holds, const char* what)
{
    if (holds)
        return;
    std::printf("failed: %s\n", what);
    ++failures;
}

void what_is_no_image_is_an_error()
{
    const lum::Capture log;
    load("front.txt");
    check(log.count(LUM_ERROR, PACKAGE_LOADER) == 1, "one error");
    check(log.contains("front.txt is no image"), "its text");
}

void an_image_is_no_line_in_a_normal_log()
{
    const lum::Capture log(LUM_WARNING);
    load("front.png");
    check(log.messages().empty(), "nothing up to the level warning");
}

void levels_can_differ()
{
    lum::Capture log(LUM_WARNING);
    log.set_level(PACKAGE_LOADER, LUM_DEBUG);
    load("front.png");
    check(log.texts().front() == "loading front.png", "the debug line of one package");
}
} // namespace

int main()
{
    what_is_no_image_is_an_error();
    an_image_is_no_line_in_a_normal_log();
    levels_can_differ();
    std::printf("%d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
