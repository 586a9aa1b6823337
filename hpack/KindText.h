#pragma once

/// How a kind of finding is told: in one word, and in plain English.
struct KindText {
    const char* name;
    const char* text;
};
