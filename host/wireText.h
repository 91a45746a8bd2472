#pragma once

#include <string>

/// A text as the generated records want it. They are not const, although nobody writes them; the
/// text must live until the reply has been sent.
inline char* wireText(const char* text) { return const_cast<char*>(text); }  // NOLINT: see above
inline char* wireText(const std::string& text) { return wireText(text.c_str()); }
