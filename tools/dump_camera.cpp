#include "tools/dump_camera.h"

#include "foundation/console.h"
#include "tools/dump_facts.h"

void dumpPanoxRecord(const wchar_t* prefix, const wchar_t* form, const ExifParser::PANOX& record) {
    QVMX::Console::out(L"%lsform=%ls model=\"%ls\" software=\"%ls\"\n", prefix, form,
                       escapedText(record.model).c_str(), escapedText(record.software).c_str());
    QVMX::Console::out(L"%lsprojectionType=%u zenithAngles=%.2f,%.2f compass=%.2f heading=%.2f\n", prefix,
                       record.projectionType, double(record.zenithAngles[0]), double(record.zenithAngles[1]),
                       double(record.compass), double(record.heading));
    QVMX::Console::out(L"%lstopBottomCorrection=%d videoStabilization=%d stabilizationFlags=%d,%d\n", prefix,
                       static_cast<int>(record.topBottomCorrection), static_cast<int>(record.videoStabilization),
                       record.stabilizationFlag1 ? 1 : 0, record.stabilizationFlag2 ? 1 : 0);
}

void dumpCameraMeta(MP4::Container& container) {
    for (const MakerFact& fact : readMakerRecords(container)) {
        QVMX::Console::out(L"KMKN: start=%llu bytes=%llu\n", static_cast<unsigned long long>(fact.start),
                           static_cast<unsigned long long>(fact.size));
        dumpPanoxRecord(L"KMKN:     ", fact.form.c_str(), fact.record);
        if (!fact.stopped.empty()) QVMX::Console::out(L"KMKN:     stopped: %s\n", fact.stopped.c_str());
    }
    for (const SensorFact& fact : readSensors(container)) {
        QVMX::Console::out(L"%ls: start=%llu bytes=%llu", fact.name.c_str(),
                           static_cast<unsigned long long>(fact.start), static_cast<unsigned long long>(fact.size));
        if (!fact.hasHeader) {
            QVMX::Console::out(L" no header\n");
            continue;
        }
        QVMX::Console::out(L" records=%u holds=%llu byteOrder=%ls value=%u\n", fact.records,
                           static_cast<unsigned long long>(fact.holds),
                           fact.bigEndian ? L"big-endian" : L"little-endian", fact.value);
    }
}
