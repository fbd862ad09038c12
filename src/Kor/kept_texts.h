// kept_texts.h - texts that stay for as long as the library does, as callers may hold on to them.

#ifndef KOR_KEPT_TEXTS_H
#define KOR_KEPT_TEXTS_H

#include <string>

namespace kor
{
/// A copy of text that is never changed or freed before the library goes. The same text is kept once. Any thread.
char* keep_text(const std::string& text);
} // namespace kor

#endif // KOR_KEPT_TEXTS_H
