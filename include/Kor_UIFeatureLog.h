// Kor_UIFeatureLog.h - which features of a user interface are used, in the general log.

#ifndef KOR_UIFEATURELOG_H
#define KOR_UIFEATURELOG_H

#include "Kor_Package.h"

/// Notes each use of a feature as a line in the general log.
///
/// Threads: any, at any time.
class KOR_API Kor_UIFeatureLog
{
public:
    /// The one of the process, made by the first call and there until the process ends. Null when there is
    /// no memory for it.
    static Kor_UIFeatureLog* GetInstance();

    Kor_UIFeatureLog(const Kor_UIFeatureLog&) = delete;
    Kor_UIFeatureLog& operator=(const Kor_UIFeatureLog&) = delete;
    virtual ~Kor_UIFeatureLog();

    /// Writes a line with the button's number and the number of what it was activated from, whose meaning
    /// is the application's. No level is asked for: the line has the parameters that the thread noted last.
    void writeFeature(unsigned int button, unsigned int source);

private:
    Kor_UIFeatureLog();

    static int useUIFeatureLog; ///< 0: off
    static Kor_UIFeatureLog* my_instance;
};

#endif // KOR_UIFEATURELOG_H
