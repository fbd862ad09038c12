#include "Kor_UIFeatureLog.h"

#include <new>

#include "Kor_LogFile.h"
#include "win/owner_lock.h"

int Kor_UIFeatureLog::useUIFeatureLog = 1;
Kor_UIFeatureLog* Kor_UIFeatureLog::my_instance = nullptr;

namespace
{
kor::win::OwnerLock creation_lock;
} // namespace

Kor_UIFeatureLog::Kor_UIFeatureLog() = default;

Kor_UIFeatureLog::~Kor_UIFeatureLog() = default;

Kor_UIFeatureLog* Kor_UIFeatureLog::GetInstance()
{
    const kor::win::OwnerLockGuard guard(creation_lock);
    if (my_instance == nullptr)
        my_instance = new (std::nothrow) Kor_UIFeatureLog;
    return my_instance;
}

void Kor_UIFeatureLog::writeFeature(unsigned int button, unsigned int source)
{
    if (useUIFeatureLog == 0)
        return;
    KorGLog.Log(
        "Kor_UI_FeatureLog (0) Pressing button - %d, activated from source - %d\n", static_cast<int>(button),
        static_cast<int>(source));
}
