/* math.h - declares to libc++ what Wine's header has as macros or not at all. Nothing of it is called or linked. */
#pragma once
#include_next <math.h>

#ifdef __cplusplus
extern "C"
{
#endif

#define KOR_OF_ONE(name)  \
    double name(double);  \
    float name##f(float); \
    long double name##l(long double);
#define KOR_OF_TWO(name)         \
    double name(double, double); \
    float name##f(float, float); \
    long double name##l(long double, long double);
#define KOR_TO(type, name) \
    type name(double);     \
    type name##f(float);   \
    type name##l(long double);

    KOR_OF_ONE(acos)
    KOR_OF_ONE(acosh)
    KOR_OF_ONE(asin)
    KOR_OF_ONE(asinh)
    KOR_OF_ONE(atan)
    KOR_OF_ONE(atanh)
    KOR_OF_ONE(cbrt)
    KOR_OF_ONE(ceil)
    KOR_OF_ONE(cos)
    KOR_OF_ONE(cosh)
    KOR_OF_ONE(erf)
    KOR_OF_ONE(erfc)
    KOR_OF_ONE(exp)
    KOR_OF_ONE(exp2)
    KOR_OF_ONE(expm1)
    KOR_OF_ONE(fabs)
    KOR_OF_ONE(floor)
    KOR_OF_ONE(lgamma)
    KOR_OF_ONE(log)
    KOR_OF_ONE(log10)
    KOR_OF_ONE(log1p)
    KOR_OF_ONE(log2)
    KOR_OF_ONE(logb)
    KOR_OF_ONE(nearbyint)
    KOR_OF_ONE(rint)
    KOR_OF_ONE(round)
    KOR_OF_ONE(sin)
    KOR_OF_ONE(sinh)
    KOR_OF_ONE(sqrt)
    KOR_OF_ONE(tan)
    KOR_OF_ONE(tanh)
    KOR_OF_ONE(tgamma)
    KOR_OF_ONE(trunc)

    KOR_OF_TWO(atan2)
    KOR_OF_TWO(copysign)
    KOR_OF_TWO(fdim)
    KOR_OF_TWO(fmax)
    KOR_OF_TWO(fmin)
    KOR_OF_TWO(fmod)
    KOR_OF_TWO(hypot)
    KOR_OF_TWO(nextafter)
    KOR_OF_TWO(pow)
    KOR_OF_TWO(remainder)

    KOR_TO(int, ilogb)
    KOR_TO(long, lrint)
    KOR_TO(long, lround)
    KOR_TO(long long, llrint)
    KOR_TO(long long, llround)

    double fma(double, double, double);
    float fmaf(float, float, float);
    long double fmal(long double, long double, long double);
    double frexp(double, int*);
    long double frexpl(long double, int*);
    double ldexp(double, int);
    long double ldexpl(long double, int);
    double modf(double, double*);
    long double modfl(long double, long double*);
    double nan(const char*);
    float nanf(const char*);
    long double nanl(const char*);
    double nexttoward(double, long double);
    float nexttowardf(float, long double);
    long double nexttowardl(long double, long double);
    double remquo(double, double, int*);
    float remquof(float, float, int*);
    long double remquol(long double, long double, int*);
    double scalbln(double, long);
    float scalblnf(float, long);
    long double scalblnl(long double, long);
    double scalbn(double, int);
    float scalbnf(float, int);
    long double scalbnl(long double, int);

#undef KOR_OF_ONE
#undef KOR_OF_TWO
#undef KOR_TO

#ifdef __cplusplus
}
#endif
