// Names of files and inputs, as scripts, parameter values and the environment give them.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FILE_NAME_H
#define PYORV3_EMBEDDED_ORV_FILES_FILE_NAME_H

#include <string>
#include <string_view>

namespace embedded {

// The name in UTF-8. Bytes that are not are taken for the code page Windows-1252, in which values
// and settings are stored: so both ways of giving a name find the same file.
std::string nameInUtf8(std::string_view name);

// Refuses a path that begins with a drive letter or a server of Windows, and that here would name
// a file of its own. Throws Failure(windowsPath).
void requireLocalPath(std::string_view path);

// The name from the root, without links. Throws Failure: fileNotFound, accessDenied, nameRefused.
std::string absolutePath(const std::string& name);

// The part before the last slash ("." for none), and the one behind it.
std::string folderOf(const std::string& path);
std::string lastNameOf(const std::string& path);

// Refuses a file that could be written and never saved, since a save makes a journal beside it: a
// name or path that has no room for the journal's longer one (Failure(nameRefused)), and a folder
// in which nothing can be made or whose names cannot be synced (accessDenied).
// path: absolute.
void requireSavable(const std::string& path);

}  // namespace embedded

#endif
