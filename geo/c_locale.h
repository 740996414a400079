#pragma once

#include <locale.h>

namespace geo {

// Numbers in location and XML texts always use the C conventions ("." as
// the decimal point), whatever locale the program runs under. While alive,
// this thread formats and scans in the C locale.
class CLocaleScope {
public:
    CLocaleScope();
    ~CLocaleScope();
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t previous_;
};

// The C locale object, made once.
locale_t cLocale();

}  // namespace geo
