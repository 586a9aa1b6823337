#pragma once

#include "hpack/Generic32.h"
#include "hpack/Hmemory.h"

/// A stream over a buffer that fails when it is told to: at the n-th call of Seek, SeekEnd, Read or
/// Write, once or from then on. A write that fails has written half of its bytes.
class FaultyStream : public Generic32 {
public:
    explicit FaultyStream(qtBuffer& buffer) {
        name = "faulty";
        memory.Open(buffer, 'u');
    }
    ~FaultyStream() noexcept(false) override = default;

    /// Lets `calls` calls succeed before one fails; negative: none fails.
    void FailAfter(long calls, bool sticky) {
        untilFailure = calls;
        staysBroken = sticky;
    }

    unsigned int Tell() override { return memory.Tell(); }
    void Seek(int offset) override {
        MayFail(HioErrors::position, "faulty seek");
        memory.Seek(offset);
    }
    unsigned int SeekEnd() override {
        MayFail(HioErrors::position, "faulty seek");
        return memory.SeekEnd();
    }
    unsigned int GetFileSize() override { return memory.GetFileSize(); }
    void Write(char* data, unsigned int count) override {
        try {
            MayFail(HioErrors::write, "faulty write");
        } catch (const qtX<HioErr>&) {
            memory.Write(data, count / 2);
            throw;
        }
        memory.Write(data, count);
    }
    void Read(char* data, unsigned int count) override {
        MayFail(HioErrors::read, "faulty read");
        memory.Read(data, count);
    }
    void Close() override { memory.Close(); }

private:
    void MayFail(HioErrors::Number number, const char* text) {
        if (untilFailure < 0 || untilFailure-- > 0) {
            return;
        }
        untilFailure = staysBroken ? 0 : -1;
        Fail(number, text);
    }

    Hmemory memory;
    long untilFailure = -1;
    bool staysBroken = false;
};
