// The operations on the file system by path: one header for all of them.
//
//     status.h        what a path names, and how large it is
//     directories.h   making directories
//     enumeration.h   what lies in a directory, or below it
//     removal.h       removing entries and trees
//     durability.h    flushing a file, and renaming it durably
//
// Only FlushFile, ReplaceFileDurably and CopyFileDurably (durable_copy.h) hand the extended form of
// a path to the platform; all others hand it over as given. So a path of 260 units and more works
// with these three alone. This is intended. No directory is ever flushed: a rename is durable
// because it is written through.
//
// A function that returns a code returns a Win32 code, 0 on success. It throws nothing of its own
// but exhausted memory.

#pragma once

#include "files/directories.h"
#include "files/durability.h"
#include "files/enumeration.h"
#include "files/removal.h"
#include "files/status.h"
