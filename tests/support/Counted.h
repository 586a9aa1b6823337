#pragma once

#include <gtest/gtest.h>

struct CountedBase {
    virtual ~CountedBase() = default;
};
struct Counted : CountedBase {
    explicit Counted(int& counter) : alive(counter) { ++alive; }
    ~Counted() override { --alive; }
    int& alive;
};

/// Whatever is done with pointers of this class, the last one deletes the whole object.
template <class Pointer>
void ExpectLastReferenceDeletes() {
    int alive = 0;
    Pointer first(new Counted(alive));
    Pointer second(first);
    first = Pointer();
    EXPECT_EQ(alive, 1);
    EXPECT_FALSE(first);
    second = *&second;
    EXPECT_EQ(alive, 1);
    second = Pointer(new Counted(alive));
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(second);
    second = first;
    EXPECT_EQ(alive, 0);
}
