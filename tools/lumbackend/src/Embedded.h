// Files that the program carries with it: CMake puts them in.
#ifndef LUM_BACKEND_EMBEDDED_H
#define LUM_BACKEND_EMBEDDED_H

extern const char kPageHtml[];   // made of the files of page/
extern const char kTablesSql[];  // tables.sql

#endif  // LUM_BACKEND_EMBEDDED_H
