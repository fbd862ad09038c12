/* Kor_Package.h - package numbers, message codes, and the export mark of the library's headers.
 *
 * Plain C, so that C programs and resource compilers can read it too. */

#ifndef KOR_PACKAGE_H
#define KOR_PACKAGE_H

/* KOR_API marks what the DLL exports. KOR_STATIC is for programs that compile the sources in. */
#if defined(KOR_STATIC) || !defined(_WIN32)
#define KOR_API
#elif defined(KOR_BUILDING_DLL)
#define KOR_API __declspec(dllexport)
#else
#define KOR_API __declspec(dllimport)
#endif

#ifdef __cplusplus
#define KOR_CONSTANT inline constexpr
#else
#define KOR_CONSTANT static const
#endif

/** Codes per package: the package of a message or error code is the code divided by this. */
KOR_CONSTANT int PACKAGE_RANGE = 10000;

/** Package slots of a configuration; legal package numbers are 0 to PACKAGE_COUNT - 1. */
KOR_CONSTANT int PACKAGE_COUNT = 750;

/** Package of the library's own diagnostics. */
KOR_CONSTANT int KOR_PACKAGE_LIBRARY = 106;

/** Package whose level turns the performance-monitor log on. */
KOR_CONSTANT int KOR_PACKAGE_PERFMON = 109;

/** The one package that a Kor_TestLogDestFile keeps. */
KOR_CONSTANT int KOR_PACKAGE_TEST = 217;

/** Code of an ordinary message: its line starts with a headline. */
KOR_CONSTANT unsigned int KOR_MSG_HEADLINE = 65535;

/** Code of a message that is written bare. */
KOR_CONSTANT unsigned int KOR_MSG_NO_HEADLINE = 65534;

#undef KOR_CONSTANT

/** The name of the source file, where the compiler tells it without its path. */
#if defined(__FILE_NAME__)
#define KOR_FILE_NAME __FILE_NAME__
#else
#define KOR_FILE_NAME __FILE__
#endif

#endif /* KOR_PACKAGE_H */
