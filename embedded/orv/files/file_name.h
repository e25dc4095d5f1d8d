// Names of files and inputs from scripts, parameter values and the environment.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FILE_NAME_H
#define PYORV3_EMBEDDED_ORV_FILES_FILE_NAME_H

#include <string>
#include <string_view>

namespace embedded {

// Returns the name in UTF-8. A name that is not valid UTF-8 is taken as Windows-1252, the code page
// of stored values and settings, so that a name finds the same file in both encodings.
std::string nameInUtf8(std::string_view name);

// Throws Failure(windowsPath) if the path begins with a Windows drive letter or server; on this
// system it would be the name of a new file in the current directory.
void requireLocalPath(std::string_view path);

// Returns the absolute path without links. Throws Failure: fileNotFound, accessDenied, nameRefused.
std::string absolutePath(const std::string& name);

// Return the part before the last slash ("." if there is none) and the part after it.
std::string folderOf(const std::string& path);
std::string lastNameOf(const std::string& path);

// Throws if a save could not create its journal beside the file: Failure(nameRefused) if the longer
// name of the journal exceeds the limits of the system, accessDenied if no file can be created in
// the directory or the directory cannot be synced. path: absolute.
void requireSavable(const std::string& path);

}  // namespace embedded

#endif
