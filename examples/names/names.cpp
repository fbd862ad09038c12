// names.cpp - enumerators by name: learned from the text of their declaration.

#include <cstdio>

#include "Kor_Legend.h"

// One text for the compiler and for the legend.
#define DECLARE_ENUM(...) \
    __VA_ARGS__;          \
    const char declaration[] = #__VA_ARGS__;

DECLARE_ENUM(enum PaperSize{A4 = 1, A5, LEDGER = 7, LETTER})

int main()
{
    const auto legend = Kor_Legend::GetInstance();
    legend->Register(declaration);

    std::printf("%s is %d\n", legend->ToString("enum PaperSize", LEDGER).c_str(), static_cast<int>(LEDGER));
    std::printf("value 5 is [%s]\n", legend->ToString("enum PaperSize", 5).c_str());

    const Kor_EnumResult letter = legend->ToEnum("PaperSize", "letter", true);
    std::printf("letter: %s, %d\n", Kor_Legend::ToString(letter.found, Kor_Legend::FORMAT_TRUE), letter.value);
    const Kor_EnumResult roll = legend->ToEnum("PaperSize", "ROLL", false);
    std::printf("ROLL: %s\n", Kor_Legend::ToString(roll.found, Kor_Legend::FORMAT_TRUE));
    return 0;
}
