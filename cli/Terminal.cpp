// SPDX-License-Identifier: MIT
#include "Terminal.h"

#include <ncurses.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "client/Failure.h"

namespace {

constexpr int CONTROL_C = 3;

/// How long a key that sends several characters may take for them.
constexpr int ESCAPE_MS = 25;

attr_t attributesOf(TopTable::Style style) {
    switch (style) {
        case TopTable::Style::HEADER:
        case TopTable::Style::CHANGED:
            return A_BOLD;
        case TopTable::Style::STALE:
            return A_DIM;
        case TopTable::Style::PLAIN:
            break;
    }
    return A_NORMAL;
}

const std::map<int, Key>& keys() {
    static const std::map<int, Key> known{{KEY_UP, Key::UP},         {'k', Key::UP},
                                          {KEY_DOWN, Key::DOWN},     {'j', Key::DOWN},
                                          {KEY_PPAGE, Key::PAGE_UP}, {KEY_NPAGE, Key::PAGE_DOWN},
                                          {KEY_HOME, Key::FIRST},    {'g', Key::FIRST},
                                          {KEY_END, Key::LAST},      {'G', Key::LAST},
                                          {' ', Key::SWITCH},        {'y', Key::YES},
                                          {'q', Key::QUIT},          {CONTROL_C, Key::QUIT}};
    return known;
}

}  // namespace

Terminal::Terminal() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw Failure("standard input and output must be a terminal; use iomap watch");
    }
    // What the labels say is UTF-8.
    std::setlocale(LC_CTYPE, "");
    // initscr() would end the process.
    if (newterm(nullptr, stdout, stdin) == nullptr) {
        const char* const name = std::getenv("TERM");
        throw Failure("the terminal '" + std::string(name == nullptr ? "" : name) +
                      "' is unknown; set TERM");
    }
    // Ctrl-C is a key, so that the screen is restored in order.
    raw();
    set_escdelay(ESCAPE_MS);
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    curs_set(0);
}

Terminal::~Terminal() {
    endwin();
    delscreen(set_term(nullptr));
}

Key Terminal::readKey() {
    for (;;) {
        const int code = getch();
        if (code == ERR) {
            return Key::NONE;
        }
        if (code != KEY_RESIZE) {
            const auto key = keys().find(code);
            return key == keys().end() ? Key::OTHER : key->second;
        }
    }
}

int Terminal::height() const {
    return getmaxy(stdscr);
}

int Terminal::width() const {
    return getmaxx(stdscr);
}

void Terminal::draw(const std::vector<TopTable::Line>& lines) {
    erase();
    int y = 0;
    for (const TopTable::Line& line : lines) {
        attrset(
            static_cast<int>(attributesOf(line.style) | (line.isSelected ? A_REVERSE : A_NORMAL)));
        mvaddstr(y, 0, line.text.c_str());
        ++y;
    }
    refresh();
}
