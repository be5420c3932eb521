// The component library's start and the shell's folder picker, under their published names.
#pragma once

#include "platform/ui/win_types.h"

enum : uint32_t {
    COINIT_APARTMENTTHREADED = 0x2,
    BIF_RETURNONLYFSDIRS = 0x1,
};

enum : HRESULT {
    S_OK = 0,
    S_FALSE = 1,
};

HRESULT CoInitializeEx(void* reserved, uint32_t model);
void CoUninitialize();

struct ITEMIDLIST;  // a picked folder, freed through the shell's allocator
using LPITEMIDLIST = ITEMIDLIST*;
using LPCITEMIDLIST = const ITEMIDLIST*;

struct BROWSEINFOA {
    HWND hwndOwner;
    LPCITEMIDLIST pidlRoot;
    char* pszDisplayName;  // at least 260 bytes, or null
    LPCSTR lpszTitle;
    UINT ulFlags;
    void* lpfn;
    LPARAM lParam;
    int iImage;
};

LPITEMIDLIST SHBrowseForFolderA(BROWSEINFOA* info);         // null when cancelled
BOOL SHGetPathFromIDListA(LPCITEMIDLIST list, char* path);  // path: 260 bytes

class IMalloc {
public:
    virtual void Free(void* block) = 0;
    virtual uint32_t Release() = 0;

protected:
    ~IMalloc() = default;
};

HRESULT SHGetMalloc(IMalloc** allocator);
