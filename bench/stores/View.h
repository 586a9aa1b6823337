#pragma once

#include "bench/stores/Package.h"
#include "hpack/HpackView.h"

namespace stores {

/// A package in a file, mapped.
class View : public Package {
public:
    static constexpr const char* name = "hpack_view";

    struct Opened {
        explicit Opened(const View& store) : view(HpackView::Map(store.Where())) {}
        HpackView view;
    };
    class Session {
    public:
        explicit Session(const Opened& opened) : view(opened.view) {}
        std::string_view Get(const std::string& key) { return *view.Find(key); }
        template <class Visit>
        void ForEach(std::string_view prefix, Visit visit) {
            for (const HpackView::Item item : view.Prefix(prefix)) {
                visit(item.Key());
            }
        }

    private:
        const HpackView& view;
    };
};

}  // namespace stores
