// refusal.h - what a site holds and cannot be taken.

#ifndef LEVELSYNC_SITE_REFUSAL_H
#define LEVELSYNC_SITE_REFUSAL_H

#include <string>
#include <utility>

#include "failure.h"

namespace levelsync
{
/// The store answers, and what it has is refused as a whole.
class Refusal : public Failure
{
public:
    explicit Refusal(std::string what)
        : Failure(std::move(what), "LevelSync --site ... check shows all that is wrong; mend it there.")
    {
    }
};
} // namespace levelsync

#endif // LEVELSYNC_SITE_REFUSAL_H
