#pragma once

#include <string>
#include <typeinfo>
#include <vector>

#include "basekit/qtxAll.h"

/// Base class of the numbered errors: catches package and stream errors alike.
class VANTRY_EXPORT qtXbase : public qtxAll {
public:
    /// Constructs the root with code 2 and level 1. `text` is copied.
    explicit qtXbase(const char* text);
    qtXbase(const qtXbase& other);
    qtXbase& operator=(const qtXbase& other);
    ~qtXbase() override;

    const char* BaseString() const override;

    /// Returns the text, cut to 1023 characters. SpecificString() returns all of it.
    const char* Text() const { return message; }

private:
    char message[1024];
};

/// Wraps one string argument of a qtX<T>; a qtString converts to it implicitly.
class VANTRY_EXPORT StringProxy {
public:
    /// Keeps a copy of `text`.
    StringProxy(const qtString& text);
    ~StringProxy();
    StringProxy(const StringProxy& other);
    StringProxy& operator=(const StringProxy& other);

    /// Returns the string, owned by this object.
    const qtString& Text() const { return string; }

private:
    qtString string;
};

/// An error with a number and up to two string arguments. `T` only names the family: qtX<Hpack> are
/// package errors, qtX<HioErr> stream errors. hpack/HpackErrors.h and hpack/HioErrors.h list their
/// numbers and arguments.
template <class T>
class VANTRY_EXPORT qtX : public qtXbase {
public:
    /// Copies the text and the arguments.
    /// @throws std::bad_alloc if memory runs out
    /// @{
    qtX(const char* text, int errorNumber) : qtXbase(text), number(errorNumber) {}
    qtX(const char* text, int errorNumber, const StringProxy& argument) : qtX(text, errorNumber) {
        arguments.reserve(1);
        arguments.push_back(argument.Text());
    }
    qtX(const char* text, int errorNumber, const StringProxy& first, const StringProxy& second)
        : qtX(text, errorNumber) {
        arguments.reserve(2);
        arguments.push_back(first.Text());
        arguments.push_back(second.Text());
    }
    /// @}

    /// Returns the name of `T` in the platform's run-time type information: "5Hpack", "6HioErr".
    const char* BaseString() const override { return typeid(T).name(); }
    qtString ErrorString() const override {
        return this->ErrorLine("number " + std::to_string(number));
    }

    /// Returns the number of the error within its family.
    int Number() const { return number; }
    /// Returns the names that the error concerns: none, one or two strings, owned by this object.
    const std::vector<qtString>& Arguments() const { return arguments; }

private:
    int number;
    std::vector<qtString> arguments;
};
