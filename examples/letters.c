/* A package from beginning to end, in C. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vantry/hpack.h"

static int put(vantry_hpack* package, const char* key, const char* body) {
    return vantry_hpack_put(package, key, strlen(key), body, strlen(body)) == VANTRY_OK;
}

static int create(vantry_hpack* package) {
    return put(package, "alpha", "the first letter") && put(package, "beta", "the second letter") &&
           vantry_hpack_save(package) == VANTRY_OK;
}

static int change(vantry_hpack* package) {
    return put(package, "alpha", "first") &&
           vantry_hpack_rename(package, "beta", 4, "b", 1) == VANTRY_OK &&
           vantry_hpack_delete(package, "gamma", 5) == VANTRY_ABSENT &&
           vantry_hpack_save(package) == VANTRY_OK;
}

static int show(vantry_hpack* package) {
    vantry_hpack_walk* const walk = vantry_hpack_iterate(package, NULL, 0);
    const void* key;
    size_t key_length;
    vantry_result result;
    while ((result = vantry_hpack_next(walk, &key, &key_length)) == VANTRY_OK) {
        const void* body;
        size_t length;
        result = vantry_hpack_view(package, key, key_length, &body, &length);
        if (result != VANTRY_OK) {
            break;
        }
        printf("%.*s: %.*s\n", (int)key_length, (const char*)key, (int)length, (const char*)body);
    }
    vantry_hpack_walk_free(walk);
    return result == VANTRY_ABSENT;
}

/* Opens the package, works on it and releases it. What the work did not save is lost. */
static void with_letters(char mode, int (*work)(vantry_hpack*)) {
    vantry_hpack* const package = vantry_hpack_open("letters.hpk", mode);
    if (package == NULL || !work(package)) {
        fprintf(stderr, "%s\n", vantry_hpack_last_error()->text);
        exit(1);
    }
    vantry_hpack_discard(package);
}

int main(void) {
    with_letters('w', create);
    with_letters('u', change);
    with_letters('r', show);
    return 0;
}
