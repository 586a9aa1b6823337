#pragma once

#include "hpack/Hmemory.h"

/// A stream over a buffer that fails when it is told to: at the n-th call of Seek, SeekEnd, Read or
/// Write, once or from then on. A write that fails has written half of its bytes.
class FaultyStream : public Hmemory {
public:
    explicit FaultyStream(qtBuffer& bytes) {
        Open(bytes, 'u');
        name = "faulty";
    }
    ~FaultyStream() noexcept(false) override = default;

    /// Lets `calls` calls succeed before one fails; negative: none fails.
    void FailAfter(long calls, bool sticky) {
        untilFailure = calls;
        staysBroken = sticky;
    }

    void Seek(int offset) override {
        MayFail(HioErrors::position);
        Hmemory::Seek(offset);
    }
    unsigned int SeekEnd() override {
        MayFail(HioErrors::position);
        return Hmemory::SeekEnd();
    }
    void Write(char* data, unsigned int count) override {
        try {
            MayFail(HioErrors::write);
        } catch (const qtX<HioErr>&) {
            Hmemory::Write(data, count / 2);
            throw;
        }
        Hmemory::Write(data, count);
    }
    void Read(char* data, unsigned int count) override {
        MayFail(HioErrors::read);
        Hmemory::Read(data, count);
    }

private:
    void MayFail(HioErrors::Number number) {
        if (untilFailure < 0 || untilFailure-- > 0) {
            return;
        }
        untilFailure = staysBroken ? 0 : -1;
        Fail(number, "faulty");
    }

    long untilFailure = -1;
    bool staysBroken = false;
};
