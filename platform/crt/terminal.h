// What a command line tool needs to know of its terminal.
#pragma once

bool StderrIsTerminal();
int TerminalColumns();  // of stderr's terminal; 80 where it can't be told
