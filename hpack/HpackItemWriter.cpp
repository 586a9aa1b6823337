#include "hpack/HpackItemWriter.h"

#include <utility>

#include "hpack/PackageCore.h"

using namespace vantry_internal;

struct VANTRY_LOCAL HpackItemWriter::Impl {
    PackageCore::NewRecord Record() const { return {key, bodyLength, 0}; }
    std::uint64_t End() const { return at + RecordHeadSize(key.size()) + bodyLength; }

    template <class Work>
    void Do(const Work& work) {
        // Any failure leaves the writer inactive.
        if (!std::exchange(active, false) || core.openings != opening) {
            core.RefuseWrite();
        }
        try {
            work();
        } catch (...) {
            core.writeFailed = true;
            throw;
        }
    }

    PackageCore& core;
    const qtString key;
    const unsigned int opening = core.openings;
    std::uint64_t at = 0;
    std::uint64_t bodyLength = 0;
    bool active = true;
};

HpackItemWriter::HpackItemWriter(Hpack& package, const qtString& key)
    : impl(new Impl{PackageCore::Of(package), key}) {
    impl->Do([this] {
        impl->at = impl->core.ReserveRecord(impl->Record());
        impl->active = true;
    });
}

HpackItemWriter::~HpackItemWriter() = default;

void HpackItemWriter::Write(const char* data, unsigned int count) {
    impl->Do([&] {
        const std::uint64_t end = impl->End();
        if (impl->core.Size() != end) {
            impl->core.RefuseWrite();
        }
        impl->core.RequireRoom(impl->Record(), end + count, false);
        impl->core.Write(data, count);
        impl->core.RequireWrittenTo(end + count);
        impl->bodyLength += count;
        impl->active = true;
    });
}

void HpackItemWriter::Finish() {
    impl->Do([this] { impl->core.CompleteRecord(impl->Record(), impl->at); });
}
