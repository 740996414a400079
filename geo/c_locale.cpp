#include "geo/c_locale.h"

namespace geo {

locale_t cLocale() {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return c;
}

CLocaleScope::CLocaleScope() : previous_(static_cast<locale_t>(0)) {
    const locale_t c = cLocale();
    if (c != static_cast<locale_t>(0)) previous_ = uselocale(c);
}

CLocaleScope::~CLocaleScope() {
    if (previous_ != static_cast<locale_t>(0)) uselocale(previous_);
}

}  // namespace geo
