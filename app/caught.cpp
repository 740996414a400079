#include "app/caught.h"

#include <exception>
#include <string>

#include "foundation/console.h"
#include "foundation/wchar.h"

bool runCaught(const std::function<bool()>& step) {
    try {
        return step();
    } catch (const char* message) {
        QVMX::Console::out(L"%ls\n", QVMX::wchar::mbs2wcs(message != nullptr ? message : "").c_str());
    } catch (const std::exception& error) {
        QVMX::Console::out(L"%ls\n", QVMX::wchar::mbs2wcs(error.what()).c_str());
    } catch (...) {
        QVMX::Console::out(L"unexpected error.\n");
    }
    return false;
}
