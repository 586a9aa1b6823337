#include <iostream>
#include <vector>

#include "hpack/Hpack.h"

int main() {
    try {
        Hpack package;
        package.Open("letters.hpk", 'w');
        package.AddOrUpdate("alpha", "the first letter");
        package.AddOrUpdate("beta", "the second letter");
        package.Close();

        package.Open("letters.hpk", 'u');
        package.AddOrUpdate("alpha", "first");  // fits: overwrites the old version
        package.Rename("beta", "b");
        package.Delete("gamma");  // absent: not an error
        package.Close();

        package.Open("letters.hpk", 'r');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        for (const qtString& key : keys) {
            qtString body;
            package.GetItem(key, body);
            std::cout << key << ": " << body << "\n";
        }
        package.Close();
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
        return 1;
    }
}
