// A package as a resource bundle: all texts of a program in one file, read into memory once.
//
//     bundle PKG LANGUAGE NAME...
#include <iostream>
#include <system_error>

#include "basekit/files.h"
#include "hpack/Hpack.h"

// Keys are LANGUAGE/NAME; English stands in for what nobody has translated.
class Resources {
public:
    Resources(const qtString& path, const qtString& language) : wanted(language) {
        qtString content;
        if (const int error = qtStringRead(content, path)) {
            throw std::system_error(-error, std::generic_category(), path);
        }
        // The package shares the buffer and only reads it: a lookup moves no file offset.
        buffer->Resize(content.size());
        content.copy(buffer->Data(), content.size());
        package.Open(buffer, 'r');
    }

    qtString Text(const qtString& name) {
        for (const qtString& language : {wanted, qtString("en")}) {
            const qtString key = language + "/" + name;
            if (package.Contains(key)) {
                qtString text;
                package.GetItem(key, text);
                return text;
            }
        }
        return "?" + name;
    }

private:
    const qtString wanted;
    qtPtr<qtBuffer> buffer{new qtBuffer};
    Hpack package;
};

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: bundle PKG LANGUAGE NAME...\n";
        return 2;
    }
    try {
        Resources resources(argv[1], argv[2]);
        for (int at = 3; at < argc; ++at) {
            std::cout << resources.Text(argv[at]) << "\n";
        }
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
        return 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
