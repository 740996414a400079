#include "tools/refusal.h"

#include "foundation/console.h"
#include "foundation/wchar.h"

int refuseOutput(const std::string& output, const std::string& cause, QVMX::PendingOutput* pending,
                 unsigned long long needed) {
    std::string said = cause;
    if (pending != nullptr) {
        said = QVMX::failureCause(output, cause, *pending, needed);
    } else if (const std::string full = QVMX::fullDiskCause(output); !full.empty()) {
        said = full;
    }
    QVMX::Console::out(L"%ls: %ls; nothing was written.\n", QVMX::wchar::mbs2wcs(output.c_str()).c_str(),
                       QVMX::wchar::mbs2wcs(said.c_str()).c_str());
    return 1;
}
