#ifndef CONTENTS_MGR_PLATFORM_TEXT_H
#define CONTENTS_MGR_PLATFORM_TEXT_H

#include <cstdlib>

namespace dorn {

// Owns one text allocated by a platform getter.
class PlatformText {
public:
    PlatformText() = default;
    ~PlatformText() { free(m_text); }
    PlatformText(const PlatformText&) = delete;
    PlatformText& operator=(const PlatformText&) = delete;

    char** Out() { return &m_text; }
    const char* Get() const { return m_text ? m_text : ""; }  // never null

private:
    char* m_text = nullptr;
};

// Calls one text getter on a handle; empty when it fails.
// NOLINTBEGIN(bugprone-macro-parentheses): a name that is declared
#define CM_PLATFORM_TEXT(name, getter, handle) \
    dorn::PlatformText name;                   \
    static_cast<void>(getter((handle), name.Out()))
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace dorn

#endif
