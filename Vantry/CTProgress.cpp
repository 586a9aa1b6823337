#include "Vantry/CTProgress.h"

#include <cstring>
#include <mutex>

CTProgress::ProgressData CTProgress::RunningData::Snapshot() const {
    ProgressData data;
    // First, with acquire order: EndRun clears it last, so an ended phase is seen with its outcome
    // and its final amounts.
    data.running = running;
    std::memcpy(data.status, status, sizeof data.status);
    data.total = total;
    data.current = current;
    data.finishState = finishState;
    data.interrupted = interrupted;
    return data;
}

void CTProgress::RunningData::StartPhase() {
    std::memset(status, 0, sizeof status);
    total = 0;
    current = 0;
    running = true;
    finishState = false;
}

CTProgress::CTProgress() = default;
CTProgress::~CTProgress() = default;

CTProgress::CTProgress(const CTProgress& other)
    : currentPhase(other.currentPhase),
      totalPhases(other.totalPhases),
      currentData(other.currentData),
      finishedPhases(other.finishedPhases) {}

CTProgress& CTProgress::operator=(const CTProgress& other) {
    if (this == &other) {
        return *this;
    }
    finishedPhases = std::vector<ProgressData>(other.finishedPhases);
    totalPhases = other.totalPhases;
    currentPhase = other.currentPhase;
    currentData = other.currentData;
    return *this;
}

void CTProgress::Init() {
    const std::lock_guard<qtMutex> lock(mutex);
    currentData.StartPhase();
    currentData.interrupted = false;
    finishedPhases.clear();
    totalPhases = 1;
    currentPhase = 0;
}

void CTProgress::NextPhase(bool finishState) {
    const std::lock_guard<qtMutex> lock(mutex);
    ProgressData ended = currentData.Snapshot();
    if (ended.running) {
        ended.running = false;
        ended.finishState = finishState;
    }
    finishedPhases.push_back(ended);
    currentData.StartPhase();
    currentPhase = currentPhase + 1;
}

void CTProgress::SetStatus(const char* text) {
    const std::lock_guard<qtMutex> lock(mutex);
    std::strncpy(currentData.status, text, sizeof currentData.status - 1);
    currentData.status[sizeof currentData.status - 1] = '\0';
}

void CTProgress::GetStatus(char* buffer) const {
    const std::lock_guard<qtMutex> lock(mutex);
    std::memcpy(buffer, currentData.status, std::strlen(currentData.status) + 1);
}

void CTProgress::GetPhaseData(unsigned int phaseNum, ProgressData& data) const {
    const std::lock_guard<qtMutex> lock(mutex);
    if (phaseNum == 0 || phaseNum > finishedPhases.size()) {
        data = currentData.Snapshot();
    } else {
        data = finishedPhases[phaseNum - 1];
    }
}
