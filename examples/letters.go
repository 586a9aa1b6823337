// A package from beginning to end, in Go.
package main

// #cgo LDFLAGS: -lvantry
// #include <stdlib.h>
// #include "vantry/hpack.h"
import "C"

import (
	"errors"
	"fmt"
	"os"
	"runtime"
	"unsafe"
)

// Package is an open package. Changes count from the next Save on.
type Package struct{ handle *C.vantry_hpack }

// The error of a call belongs to its thread: a goroutine must stay on one from the call until it
// has read the error.
func guarded(call func() bool) error {
	runtime.LockOSThread()
	defer runtime.UnlockOSThread()
	if call() {
		return nil
	}
	return errors.New(C.GoString(C.vantry_hpack_last_error().text))
}

func pointer(bytes []byte) (unsafe.Pointer, C.size_t) {
	if len(bytes) == 0 {
		return nil, 0
	}
	return unsafe.Pointer(&bytes[0]), C.size_t(len(bytes))
}

// Open opens a package in mode 'r', 'u' or 'w'.
func Open(path string, mode byte) (*Package, error) {
	name := C.CString(path)
	defer C.free(unsafe.Pointer(name))
	opened := &Package{}
	err := guarded(func() bool {
		opened.handle = C.vantry_hpack_open(name, C.char(mode))
		return opened.handle != nil
	})
	return opened, err
}

// Put adds an item or replaces it.
func (p *Package) Put(key, body string) error {
	k, kLength := pointer([]byte(key))
	b, bLength := pointer([]byte(body))
	return guarded(func() bool {
		return C.vantry_hpack_put(p.handle, k, kLength, b, bLength) == C.VANTRY_OK
	})
}

// Rename moves an item to another key.
func (p *Package) Rename(from, to string) error {
	f, fLength := pointer([]byte(from))
	t, tLength := pointer([]byte(to))
	return guarded(func() bool {
		return C.vantry_hpack_rename(p.handle, f, fLength, t, tLength) == C.VANTRY_OK
	})
}

// Get returns a copy of an item's body.
func (p *Package) Get(key []byte) (body []byte, err error) {
	k, kLength := pointer(key)
	err = guarded(func() bool {
		var bytes unsafe.Pointer
		var length C.size_t
		if C.vantry_hpack_get(p.handle, k, kLength, &bytes, &length) != C.VANTRY_OK {
			return false
		}
		body = C.GoBytes(bytes, C.int(length))
		C.vantry_hpack_free(bytes)
		return true
	})
	return body, err
}

// Keys returns all keys in order.
func (p *Package) Keys() (keys [][]byte) {
	walk := C.vantry_hpack_iterate(p.handle, nil, 0)
	defer C.vantry_hpack_walk_free(walk)
	var key unsafe.Pointer
	var length C.size_t
	for C.vantry_hpack_next(walk, &key, &length) == C.VANTRY_OK {
		keys = append(keys, C.GoBytes(key, C.int(length)))
	}
	return keys
}

// Save publishes changes.
func (p *Package) Save() error {
	return guarded(func() bool { return C.vantry_hpack_save(p.handle) == C.VANTRY_OK })
}

func run() error {
	letters, err := Open("letters.hpk", 'w')
	if err != nil {
		return err
	}
	defer C.vantry_hpack_discard(letters.handle)
	for _, change := range []func() error{
		func() error { return letters.Put("alpha", "the first letter") },
		func() error { return letters.Put("beta", "the second letter") },
		letters.Save,
		func() error { return letters.Put("alpha", "first") },
		func() error { return letters.Rename("beta", "b") },
		letters.Save,
	} {
		if err := change(); err != nil {
			return err
		}
	}
	for _, key := range letters.Keys() {
		body, err := letters.Get(key)
		if err != nil {
			return err
		}
		fmt.Printf("%s: %s\n", key, body)
	}
	return nil
}

func main() {
	if err := run(); err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
}
