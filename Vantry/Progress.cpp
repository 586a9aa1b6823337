#include "Vantry/Progress.h"

#include "basekit/FileInfo.h"
#include "basekit/process_assert.h"

qtxProgress::qtxProgress(const qtxProgress& other) = default;
qtxProgress& qtxProgress::operator=(const qtxProgress& other) = default;
qtxProgress::~qtxProgress() = default;

const char* qtxProgress::BaseString() const {
    return "Progress";
}

qtxProgressCancel::qtxProgressCancel(const qtxProgressCancel& other) = default;
qtxProgressCancel& qtxProgressCancel::operator=(const qtxProgressCancel& other) = default;
qtxProgressCancel::~qtxProgressCancel() = default;

void Progress::SetNumOfPhases(unsigned int numPhases, unsigned int range, const char* label) {
    Store(numOfPhases, numPhases);
    Store(phase, 0U);
    Store(phaseName, label);
    SetProgressRange(range);
}

void Progress::SetProgressRange(unsigned int range) {
    Store(progressRange, range);
    Store(progress, 0U);
    stopRequested = false;
}

inline void Progress::EnterPhase(unsigned int newPhase, unsigned int range, const char* label,
                                 const char* function) {
    Store(phaseName, label);
    Store(phase, newPhase);
    if (numOfPhases != 0 && newPhase > numOfPhases) {
        process_assert("!numOfPhases || phase<=numOfPhases", __FILE__, __LINE__, function);
    }
    Store(progress, 0U);
    Store(progressRange, range);
}

void Progress::SetPhase(unsigned int newPhase, unsigned int range, const char* label) {
    StopProgressOnRequest();
    EnterPhase(newPhase, range, label,
               "void Progress::SetPhase(unsigned int, unsigned int, const char*)");
}

void Progress::IncPhase(unsigned int range, const char* label) {
    StopProgressOnRequest();
    EnterPhase(phase + 1, range, label, "void Progress::IncPhase(unsigned int, const char*)");
}

void Progress::Cancel() {
    stopRequested = false;
    qtxProgressCancel cancel(10, "", 2);
    cancel.SetFileInfo(QT_FILE_INFO);
    throw cancel;
}

void Progress::ReportStep(const char* function) {
    process_assert("!progressRange || progress<=progressRange", __FILE__, __LINE__, function);
}
