// The abstract file of the base library, and the registry of open files.
//
// Three forms derive from File: DiskFile (a buffered standard stream), WinDiskFile (unbuffered,
// can show a span of a larger file) and MemoryFile (read-only bytes in memory). Every open file
// is in one process-wide registry, so FileCloseReport can name and close what a run left open.
//
// Life: a default-constructed object is closed; Open (or the constructor with Open's arguments)
// opens it, and the caller asks IsOpen, since a failed open only leaves the object closed. Close
// or the destructor closes; a closed object may be opened again. Who made a file deletes it, and
// an object that may still be open at FileCloseReport must come from NEW, since the report
// deletes it.
//
// Positions and sizes are 32 bits wide. Seek takes the origin first: 0 from the start of the
// span, 1 from the present position, 2 from the end. Read, Write, Seek, Commit, IsEndOfFile and
// GetSize on a closed disk file are misuse and go to CorvaneError (code 513); Tell on any closed
// file gives -1 without a report. Nothing here takes a lock: a file belongs to one thread at a
// time, and only one thread may open or close files at once.
#pragma once

#include <cstdint>

class File {
public:
    File() = default;
    // Closes nothing: each form's destructor closes first. Warns and asserts if a name is still
    // held, which only a form that forgot to close can leave.
    virtual ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Each form's own closing, then this one: warns of a file never used ("opened but never
    // used") or never written though not opened for reading, takes the file out of the registry
    // and frees name and mode. False, with a warning, if the file was not in the registry.
    virtual bool Close();
    virtual bool IsOpen() const = 0;
    virtual bool IsEndOfFile() = 0;
    // Deprecated twin of IsEndOfFile; says so on the debug output.
    virtual bool IsEOF();
    // Bytes delivered, which end before count only at the end of the data.
    virtual uint32_t Read(void* buffer, uint32_t count) = 0;
    // Reads one line into buffer: at most size - 1 bytes, up to and including a 10 or a 0 byte,
    // dropping every 13, and always terminated. The buffer, or null if nothing was kept.
    // One Read per byte here; DiskFile uses the stream's own line read.
    virtual char* Get(char* buffer, uint32_t size);
    virtual uint32_t Write(const void* buffer, uint32_t count) = 0;
    // Writes the text without its terminator; the bytes written.
    virtual uint32_t WriteString(const char* text);
    virtual int32_t Tell();
    // The new position, relative to the span's start; see each form for failures.
    virtual int32_t Seek(int32_t origin, int32_t offset) = 0;
    virtual uint32_t GetSize() = 0;
    // Sends written data to the disk; nothing for a form without a disk.
    virtual void Commit();

    const char* GetName() const { return name; }  // null while closed
    const char* GetMode() const { return mode; }  // null while closed
    uint32_t GetBytesRead() const { return bytesRead; }
    uint32_t GetBytesWritten() const { return bytesWritten; }
    int32_t GetSpanStart() const { return spanStart; }
    int32_t GetSpanLength() const { return spanLength; }

protected:
    // Called by each form behind a successful open of its own: copies name and mode, zeroes the
    // counters, stores the span and puts the file at the head of the registry. False (behind an
    // assertion) if the node can't be had; the form then closes what it opened.
    bool Register(const char* fileName, const char* fileMode, int32_t start, int32_t length);
    // Asserts if this object is open already; each Open asks before it opens anything, and on
    // false leaves the object as it is.
    bool ReadyToOpen() const;

    char* name = nullptr;  // owned copy; null while closed
    char* mode = nullptr;  // owned copy; null while closed
    uint32_t bytesRead = 0;
    uint32_t bytesWritten = 0;
    int32_t spanStart = 0;   // 0 for a whole file; never negative
    int32_t spanLength = 0;  // for a whole file, its size at open; never negative
};

// Names on the debug output each file still open, between the lines "FILES LEFT OPEN" and "END",
// and deletes it. Prints nothing when every file was closed. CorvaneClose calls it first.
void FileCloseReport();

// How many files the registry holds; for tests and reports.
uint32_t FileOpenCount();
