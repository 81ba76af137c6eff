// kxhost on Windows: the one ioctl kxhost makes, the terminal's size (TIOCGWINSZ),
// answered from the console's window (cli/win32/posix_compat.cpp).
#pragma once

struct winsize {
  unsigned short ws_row;
  unsigned short ws_col;
  unsigned short ws_xpixel;
  unsigned short ws_ypixel;
};

constexpr unsigned long TIOCGWINSZ = 0x5413;

// 0 with the size of the console that `fd` (1 or 2) writes to; -1 when it is no console.
int ioctl(int fd, unsigned long request, struct winsize* size);
