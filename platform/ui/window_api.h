// The window calls the dialog, the main loop and the viewer make, under their published names
// and with their published behaviour, over whichever window system is installed (ui_backend.h).
// Without one, creating a window fails and the queue holds only what was posted to it.
#pragma once

#include "platform/debug/debug_output.h"  // MessageBoxA, MB_ and ID answers
#include "platform/ui/win_types.h"

// Dialogs and windows
HWND CreateDialogParamA(HINSTANCE instance, LPCSTR templateName, HWND owner, DLGPROC procedure,
                        LPARAM initParam);
uint16_t RegisterClassA(const WNDCLASSA* windowClass);  // 0 on failure
BOOL UnregisterClassA(LPCSTR className, HINSTANCE instance);
HWND CreateWindowExA(uint32_t exStyle, LPCSTR className, LPCSTR title, uint32_t style, int x, int y,
                     int width, int height, HWND parent, void* menu, HINSTANCE instance,
                     void* param);
LRESULT DefWindowProcA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
BOOL ShowWindow(HWND window, int showMode);  // whether it was visible before
BOOL IsWindowVisible(HWND window);
BOOL UpdateWindow(HWND window);
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
HWND SetFocus(HWND window);  // the window that had the focus
HWND GetFocus();
BOOL EnableWindow(HWND window, BOOL enable);  // whether it was disabled before
BOOL IsWindowEnabled(HWND window);
LONG_PTR SetWindowLongPtrA(HWND window, int index, LONG_PTR value);  // the previous value
LONG_PTR GetWindowLongPtrA(HWND window, int index);
int GetSystemMetrics(int index);
// Moves and sizes a top-level window; the Z order is the only one there is, so it is left alone.
BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags);
// The system's icon, cursor and brushes, for a window class. Null for one the system lacks:
// this window system only knows the stock ones (a null instance).
HICON LoadIconA(HINSTANCE instance, LPCSTR name);
HCURSOR LoadCursorA(HINSTANCE instance, LPCSTR name);
HGDIOBJ GetStockObject(int object);

// Controls of a dialog
HWND GetDlgItem(HWND dialog, int id);
int GetDlgCtrlID(HWND control);
UINT GetDlgItemTextA(HWND dialog, int id, char* text, int size);  // characters copied
BOOL SetDlgItemTextA(HWND dialog, int id, LPCSTR text);
int GetWindowTextA(HWND window, char* text, int size);
BOOL SetWindowTextA(HWND window, LPCSTR text);
UINT IsDlgButtonChecked(HWND dialog, int id);
BOOL CheckDlgButton(HWND dialog, int id, UINT check);
// Not a platform call: the hint a control shows under the pointer.
BOOL SetWindowTooltipA(HWND window, LPCSTR text);

// Messages
LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
void PostQuitMessage(int exitCode);
BOOL PeekMessageA(MSG* message, HWND window, UINT filterMin, UINT filterMax, UINT remove);
BOOL WaitMessage();  // returns once a message is there to peek
BOOL TranslateMessage(const MSG* message);
LRESULT DispatchMessageA(const MSG* message);

// The pointer
int ShowCursor(BOOL show);  // the display count; the cursor shows while it is 0 or more
BOOL SetCursorPos(int x, int y);
BOOL GetCursorPos(POINT* point);
