#include "vantry/hpack.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "hpack/Hpack.h"
#include "hpack/HpackView.h"

/// Either a view, in mode 'r', or a package that may be changed.
struct vantry_hpack {
    std::optional<HpackView> view;
    Hpack package;
    char mode = 0;
    qtString path;            // of a package in a file
    qtPtr<qtBuffer> buffer;   // of a changeable one in memory
    std::string_view viewed;  // what a view in memory is of
};

struct vantry_hpack_walk {
    std::optional<HpackView::Range> range;
    std::optional<HpackView::Iterator> at;
    std::vector<qtString> keys;
    std::size_t next = 0;
};

namespace {

// An array needs no destruction: a string would be gone when functions for the end of the process
// run.
struct LastError {
    vantry_error error{VANTRY_NO_ERROR, 0, ""};
    char text[4608] = "";  // room for the longest path

    void Set(vantry_error_family family, int number, std::string_view newText) noexcept {
        text[newText.copy(text, sizeof text - 1)] = '\0';
        error = {family, number, text};
    }
};

static_assert(std::is_trivially_destructible_v<LastError>);

thread_local LastError lastError;

/// Thrown for what a caller must not do.
struct CallerError {
    const char* text;
};

[[noreturn]] void Refuse(const char* text) {
    throw CallerError{text};
}

// Records the exception that is being handled.
void Record() noexcept {
    try {
        throw;
    } catch (const qtX<Hpack>& error) {
        lastError.Set(VANTRY_PACKAGE_ERROR, error.Number(), error.SpecificString());
    } catch (const qtX<HioErr>& error) {
        lastError.Set(VANTRY_STREAM_ERROR, error.Number(), error.SpecificString());
    } catch (const CallerError& error) {
        lastError.Set(VANTRY_CALLER_ERROR, 0, error.text);
    } catch (const std::bad_alloc&) {
        lastError.Set(VANTRY_MEMORY_ERROR, 0, "no memory");
    } catch (const qtxAll& error) {
        lastError.Set(VANTRY_OTHER_ERROR, 0, error.SpecificString());
    } catch (const std::exception& error) {
        lastError.Set(VANTRY_OTHER_ERROR, 0, error.what());
    } catch (...) {
        lastError.Set(VANTRY_OTHER_ERROR, 0, "an unknown exception");
    }
}

// Returns what `work` returns, or `failed` where it throws.
template <class Result, class Work>
Result Guarded(Result failed, Work work) noexcept {
    try {
        return work();
    } catch (...) {
        Record();
        return failed;
    }
}

std::string_view Bytes(const void* bytes, std::size_t length) {
    if (bytes == nullptr && length != 0) {
        Refuse("a null pointer with a length");
    }
    return {static_cast<const char*>(bytes), length};
}

qtString Owned(const void* bytes, std::size_t length) {
    return qtString(std::string(Bytes(bytes, length)));
}

template <class Handle>
Handle& Given(Handle* handle) {
    if (handle == nullptr) {
        Refuse("a null handle");
    }
    return *handle;
}

vantry_hpack& Changeable(vantry_hpack* handle) {
    if (Given(handle).view) {
        Refuse("the package is open for reading");
    }
    return *handle;
}

void OpenAgain(vantry_hpack& handle, char mode) {
    if (handle.buffer) {
        handle.package.Open(handle.buffer, mode);
    } else {
        handle.package.Open(handle.path, mode);
    }
    handle.mode = mode;
}

void Save(vantry_hpack& handle) {
    if (handle.mode == 'w' || handle.buffer) {
        // Only closing saves a new package, and cuts a buffer to its size.
        handle.package.Close();
        OpenAgain(handle, 'u');
    } else {
        handle.package.SaveIndex();
    }
}

vantry_result Assign(std::string_view found, const void** bytes, std::size_t* length) {
    *bytes = found.data();
    *length = found.size();
    return VANTRY_OK;
}

}  // namespace

const vantry_error* vantry_hpack_last_error(void) {
    return &lastError.error;
}

vantry_hpack* vantry_hpack_open(const char* path, char mode) {
    return Guarded<vantry_hpack*>(nullptr, [&] {
        if (path == nullptr) {
            Refuse("a null path");
        }
        auto handle = std::make_unique<vantry_hpack>();
        handle->path = path;
        handle->mode = mode;
        if (mode == 'r') {
            handle->view = HpackView::Map(handle->path);
        } else {
            handle->package.Open(handle->path, mode);
        }
        return handle.release();
    });
}

vantry_hpack* vantry_hpack_open_memory(const void* bytes, size_t length, char mode) {
    return Guarded<vantry_hpack*>(nullptr, [&] {
        auto handle = std::make_unique<vantry_hpack>();
        handle->mode = mode;
        if (mode == 'r') {
            handle->viewed = Bytes(bytes, length);
            handle->view.emplace(handle->viewed);
            return handle.release();
        }
        handle->buffer = qtPtr<qtBuffer>(new qtBuffer);
        if (mode != 'w') {
            const std::string_view content = Bytes(bytes, length);
            handle->buffer->Resize(content.size());
            content.copy(handle->buffer->Data(), content.size());
        }
        handle->package.Open(handle->buffer, mode);
        return handle.release();
    });
}

vantry_result vantry_hpack_bytes(vantry_hpack* package, const void** bytes, size_t* length) {
    return Guarded(VANTRY_FAILED, [&] {
        vantry_hpack& handle = Given(package);
        if (!handle.path.empty()) {
            Refuse("the package is in a file");
        }
        if (handle.view) {
            return Assign(handle.viewed, bytes, length);
        }
        Save(handle);
        return Assign({handle.buffer->Data(), handle.buffer->Length()}, bytes, length);
    });
}

size_t vantry_hpack_count(const vantry_hpack* package) {
    if (package == nullptr) {
        return 0;
    }
    return package->view ? package->view->Count() : package->package.Count();
}

vantry_result vantry_hpack_get(vantry_hpack* package, const void* key, size_t key_length,
                               void** body, size_t* length) {
    return Guarded(VANTRY_FAILED, [&] {
        vantry_hpack& handle = Given(package);
        std::string_view found;
        qtString read;
        if (handle.view) {
            const auto viewed = handle.view->Find(Bytes(key, key_length));
            if (!viewed) {
                return VANTRY_ABSENT;
            }
            found = *viewed;
        } else {
            const qtString owned = Owned(key, key_length);
            if (!handle.package.Contains(owned)) {
                return VANTRY_ABSENT;
            }
            handle.package.GetItem(owned, read);
            found = read;
        }
        auto* const copy = static_cast<char*>(std::malloc(found.size() + 1));
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        found.copy(copy, found.size());
        copy[found.size()] = '\0';
        *body = copy;
        *length = found.size();
        return VANTRY_OK;
    });
}

void vantry_hpack_free(void* body) {
    std::free(body);
}

vantry_result vantry_hpack_view(const vantry_hpack* package, const void* key, size_t key_length,
                                const void** body, size_t* length) {
    return Guarded(VANTRY_FAILED, [&] {
        if (!Given(package).view) {
            Refuse("the package is not open in mode 'r'");
        }
        const auto found = package->view->Find(Bytes(key, key_length));
        return found ? Assign(*found, body, length) : VANTRY_ABSENT;
    });
}

vantry_result vantry_hpack_put(vantry_hpack* package, const void* key, size_t key_length,
                               const void* body, size_t body_length) {
    return Guarded(VANTRY_FAILED, [&] {
        Changeable(package).package.AddOrUpdate(Owned(key, key_length), Owned(body, body_length));
        return VANTRY_OK;
    });
}

vantry_result vantry_hpack_delete(vantry_hpack* package, const void* key, size_t key_length) {
    return Guarded(VANTRY_FAILED, [&] {
        Hpack& changed = Changeable(package).package;
        const qtString owned = Owned(key, key_length);
        if (package->mode == 'u' && !changed.Contains(owned)) {
            return VANTRY_ABSENT;
        }
        changed.Delete(owned);
        return VANTRY_OK;
    });
}

vantry_result vantry_hpack_rename(vantry_hpack* package, const void* old_key, size_t old_key_length,
                                  const void* new_key, size_t new_key_length) {
    return Guarded(VANTRY_FAILED, [&] {
        Hpack& changed = Changeable(package).package;
        const qtString former = Owned(old_key, old_key_length);
        if (package->mode == 'u' && !changed.Contains(former)) {
            return VANTRY_ABSENT;
        }
        changed.Rename(former, Owned(new_key, new_key_length));
        return VANTRY_OK;
    });
}

vantry_hpack_walk* vantry_hpack_iterate(const vantry_hpack* package, const void* prefix,
                                        size_t prefix_length) {
    return Guarded<vantry_hpack_walk*>(nullptr, [&] {
        const vantry_hpack& handle = Given(package);
        const std::string_view wanted = Bytes(prefix, prefix_length);
        auto walk = std::make_unique<vantry_hpack_walk>();
        if (handle.view) {
            walk->range = handle.view->Prefix(wanted);
            walk->at = walk->range->begin();
        } else {
            handle.package.ForEach(wanted,
                                   [&](std::string_view key) { walk->keys.emplace_back(key); });
        }
        return walk.release();
    });
}

vantry_result vantry_hpack_next(vantry_hpack_walk* walk, const void** key, size_t* key_length) {
    return Guarded(VANTRY_FAILED, [&] {
        vantry_hpack_walk& handle = Given(walk);
        if (handle.range) {
            if (*handle.at == handle.range->end()) {
                return VANTRY_ABSENT;
            }
            return Assign((*(*handle.at)++).Key(), key, key_length);
        }
        if (handle.next == handle.keys.size()) {
            return VANTRY_ABSENT;
        }
        return Assign(handle.keys[handle.next++], key, key_length);
    });
}

void vantry_hpack_walk_free(vantry_hpack_walk* walk) {
    delete walk;
}

vantry_result vantry_hpack_save(vantry_hpack* package) {
    return Guarded(VANTRY_FAILED, [&] {
        Save(Changeable(package));
        return VANTRY_OK;
    });
}

vantry_result vantry_hpack_close(vantry_hpack* package) {
    const vantry_result closed = Guarded(VANTRY_FAILED, [&] {
        if (package != nullptr && !package->view) {
            package->package.Close();
        }
        return VANTRY_OK;
    });
    if (closed == VANTRY_OK) {
        vantry_hpack_discard(package);
    }
    return closed;
}

void vantry_hpack_discard(vantry_hpack* package) {
    Guarded(VANTRY_FAILED, [&] {
        delete package;
        return VANTRY_OK;
    });
}
