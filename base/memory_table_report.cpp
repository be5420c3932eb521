// PrintMemoryTable: live bytes by source file, and by file and line (tracked build only).
#ifdef CV_DEBUG_MEMORY

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/memory_tables.h"
#include "base/memory_tracker.h"

namespace {

// Names are cut to their last 80 characters: the file's own name stands at the end of a path.
const char* ShownName(const char* name) {
    size_t length = std::strlen(name);
    return length > 80 ? name + (length - 80) : name;
}

MemoryFileNode* FindNode(const char* file) {
    for (MemoryFileNode* node = MemoryFileTable[MemoryFileBucket(file)]; node; node = node->next) {
        if (node->name == file) return node;
    }
    return nullptr;
}

void FreeLines(MemoryFileNode* node) {
    while (node->lines) {
        MemoryLineNode* next = node->lines->next;
        std::free(node->lines);
        node->lines = next;
    }
}

void AddToLine(MemoryFileNode* node, uint32_t line, uint32_t size) {
    MemoryLineNode* entry = node->lines;
    while (entry && entry->line != line) entry = entry->next;
    if (!entry) {
        entry = static_cast<MemoryLineNode*>(std::malloc(sizeof(MemoryLineNode)));
        if (!entry) return;
        *entry = MemoryLineNode{line, 0, 0, node->lines};
        node->lines = entry;
    }
    entry->bytes += size;
    entry->blocks += 1;
}

// Sums the live blocks into their file nodes (and line nodes); gives the nodes, largest first.
std::vector<MemoryFileNode*> SumByFile(bool byLine) {
    std::vector<MemoryFileNode*> nodes;
    for (MemoryFileNode* head : MemoryFileTable) {
        for (MemoryFileNode* node = head; node; node = node->next) {
            node->total = 0;
            FreeLines(node);
            nodes.push_back(node);
        }
    }
    for (const MemoryBucket& bucket : MemoryBlockTable) {
        for (uint32_t i = 0; i < bucket.count; ++i) {
            const MemoryRecord& record = bucket.records[i];
            MemoryFileNode* node = FindNode(record.file);
            if (!node) {
                MemoryOutput("Failed to find filename!\n");
                continue;
            }
            node->total += record.size;
            if (byLine) AddToLine(node, record.line, record.size);
        }
    }
    std::stable_sort(
        nodes.begin(), nodes.end(),
        [](const MemoryFileNode* a, const MemoryFileNode* b) { return a->total > b->total; });
    return nodes;
}

void PrintByFile() {
    std::vector<MemoryFileNode*> nodes = SumByFile(false);
    MemoryOutput("**********\nMemory Table By File\n**********\n");
    for (const MemoryFileNode* node : nodes)
        MemoryOutputFormat("%s : %d\n", ShownName(node->name), int(node->total));
    MemoryOutput("**********\nTable End\n**********\n");
}

// From the first file's lines on, each output is followed by a short pause.
void PrintByLine() {
    std::vector<MemoryFileNode*> nodes = SumByFile(true);
    MemoryOutput("**********\nMemory Table By File\n**********\n");
    bool pacing = false;
    auto paced = [&pacing](const char* text) {
        MemoryOutput(text);
        if (pacing) MemoryPause(100);
    };
    char text[256];
    for (MemoryFileNode* node : nodes) {
        const char* name = ShownName(node->name);
        std::snprintf(text, sizeof text, "%s : %d\n", name, int(node->total));
        paced(text);
        pacing = true;

        std::vector<const MemoryLineNode*> lines;
        for (const MemoryLineNode* entry = node->lines; entry; entry = entry->next)
            lines.push_back(entry);
        std::stable_sort(
            lines.begin(), lines.end(),
            [](const MemoryLineNode* a, const MemoryLineNode* b) { return a->bytes > b->bytes; });
        for (const MemoryLineNode* entry : lines) {
            int length = std::snprintf(text, 100, "%s(%d) : ", name, int(entry->line));
            if (length < 0) length = 0;
            if (length > 99) length = 99;
            while (length < 80) text[length++] = ' ';
            std::snprintf(text + length, sizeof text - size_t(length), ": %8d blocks = %8d\n",
                          int(entry->blocks), int(entry->bytes));
            paced(text);
        }
        paced("\n");
        FreeLines(node);
    }
    paced("**********\nTable End\n**********\n");
}

}  // namespace

void PrintMemoryTable(int32_t format) {
    MemoryPause(1000);
    if (format == 0)
        PrintByFile();
    else if (format == 1)
        PrintByLine();
    else
        MemoryOutputFormat("Unknown PrintMemoryTable format %d\n", int(format));
    MemoryPause(1000);
}

#endif  // CV_DEBUG_MEMORY
