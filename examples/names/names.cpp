// names.cpp - enumerators by name: learned from the text of their declaration.

#include <cstdio>

#include "Kor_Legend.h"

// One text for the compiler and for the legend.
#define DECLARE_ENUM(...) \
    __VA_ARGS__;          \
    const char declaration[] = #__VA_ARGS__;

DECLARE_ENUM(enum Modality{CT = 1, MR, XA = 7, US})

int main()
{
    const auto legend = Kor_Legend::GetInstance();
    legend->Register(declaration);

    std::printf("%s is %d\n", legend->ToString("enum Modality", XA).c_str(), static_cast<int>(XA));
    std::printf("value 5 is [%s]\n", legend->ToString("enum Modality", 5).c_str());

    const Kor_EnumResult us = legend->ToEnum("Modality", "us", true);
    std::printf("us: %s, %d\n", Kor_Legend::ToString(us.found, Kor_Legend::FORMAT_TRUE), us.value);
    const Kor_EnumResult pet = legend->ToEnum("Modality", "PET", false);
    std::printf("PET: %s\n", Kor_Legend::ToString(pet.found, Kor_Legend::FORMAT_TRUE));
    return 0;
}
