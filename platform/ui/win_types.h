// The window system's types and numbers, under the names and with the values the desktop
// platform publishes, so the dialog and the viewer read as they are described.
#pragma once

#include <cstdint>

struct HWND__;
using HWND = HWND__*;  // a handle number, never a pointer to follow
using HINSTANCE = void*;
using HICON = void*;
using HCURSOR = void*;
using HBRUSH = void*;
using HGDIOBJ = void*;
using BOOL = int;
using UINT = unsigned;
using LONG = int32_t;
using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;
using INT_PTR = intptr_t;
using LONG_PTR = intptr_t;
using HRESULT = int32_t;
using LPCSTR = const char*;

struct POINT {
    LONG x, y;
};

struct RECT {
    LONG left, top, right, bottom;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    uint32_t time;
    POINT pt;
};

using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);
using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

struct WNDCLASSA {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCSTR lpszMenuName;
    LPCSTR lpszClassName;
};

inline LPCSTR MAKEINTRESOURCEA(uintptr_t id) {
    return reinterpret_cast<LPCSTR>(id);
}
// The system's own icon and cursor, by number.
inline LPCSTR IDI_APPLICATION = MAKEINTRESOURCEA(32512);
inline LPCSTR IDC_ARROW = MAKEINTRESOURCEA(32512);
constexpr inline unsigned LOWORD(uintptr_t v) {
    return unsigned(v & 0xFFFF);
}
constexpr inline unsigned HIWORD(uintptr_t v) {
    return unsigned((v >> 16) & 0xFFFF);
}
constexpr inline WPARAM MAKEWPARAM(unsigned low, unsigned high) {
    return WPARAM((low & 0xFFFF) | ((high & 0xFFFF) << 16));
}

enum : UINT {
    WM_DESTROY = 0x0002,
    WM_MOVE = 0x0003,
    WM_SIZE = 0x0005,
    WM_PAINT = 0x000F,
    WM_CLOSE = 0x0010,
    WM_QUIT = 0x0012,
    WM_KEYDOWN = 0x0100,
    WM_KEYUP = 0x0101,
    WM_INITDIALOG = 0x0110,
    WM_COMMAND = 0x0111,
    WM_MOUSEMOVE = 0x0200,
    WM_LBUTTONDOWN = 0x0201,
    WM_LBUTTONUP = 0x0202,
    WM_RBUTTONDOWN = 0x0204,
    WM_RBUTTONUP = 0x0205,
    WM_USER = 0x0400,

    PBM_SETRANGE = WM_USER + 1,
    PBM_SETPOS = WM_USER + 2,  // 1026
    PBM_GETPOS = WM_USER + 8,

    CB_ADDSTRING = 0x0143,  // 323
    CB_GETCOUNT = 0x0146,
    CB_GETCURSEL = 0x0147,
    CB_GETLBTEXT = 0x0148,
    CB_GETLBTEXTLEN = 0x0149,
    CB_RESETCONTENT = 0x014B,
    CB_SETCURSEL = 0x014E,  // 334

    BM_GETCHECK = 0x00F0,
    BM_SETCHECK = 0x00F1,
};

enum : int {
    CB_ERR = -1,
    BST_UNCHECKED = 0,
    BST_CHECKED = 1,
    BN_CLICKED = 0,
    CBN_SELCHANGE = 1,
    IDCANCEL = 2,  // IDOK is with the message box
    GWLP_USERDATA = -21,
    SW_HIDE = 0,
    SW_SHOWNORMAL = 1,
    SW_SHOW = 5,
    PM_NOREMOVE = 0,
    PM_REMOVE = 1,
    CS_DBLCLKS = 8,
    SM_CYMENU = 15,
    SM_CXFRAME = 32,
    SM_CYFRAME = 33,
    SWP_NOSIZE = 0x0001,
    SWP_NOMOVE = 0x0002,
    SWP_NOZORDER = 0x0004,
    WHITE_BRUSH = 0,
    VK_SHIFT = 16,
    VK_ESCAPE = 27,
    VK_SPACE = 32,
};

enum : uint32_t {
    WS_POPUP = 0x80000000u,
    WS_VISIBLE = 0x10000000u,
};
