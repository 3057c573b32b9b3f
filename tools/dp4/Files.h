// Reading and writing of files, standard input and standard output; and the entity of a configuration that was read.

#ifndef MORVIX_DP4_FILES_H
#define MORVIX_DP4_FILES_H

#include <string>

#include "Environment.h"
#include "inspect/json/Document.h"
#include "inspect/model/EntityModel.h"

namespace dp4 {

// A file in messages, not yet escaped: its path, or "standard input" for "-".
std::string NameOfFile(const std::string& path);

// The content of a file, or of standard input for "-". Throws InputError when the file cannot be read or is longer than
// 64 MiB.
std::string ReadBytes(const std::string& path, Environment& environment);

// The same without a byte-order mark.
std::string ReadFile(const std::string& path, Environment& environment);

// Throws InputError when the file cannot be read or is not JSON: "NAME:LINE:COLUMN: not JSON: ...".
morvix::inspect::json::Document ReadJsonFile(const std::string& path, Environment& environment);

// The document of a file that holds these bytes. Throws InputError when they are not JSON.
morvix::inspect::json::Document ReadJson(const std::string& path, const std::string& bytes);

// The chosen entity of a configuration, with a warning when the parser drops attributes of it: packets then say nothing
// of them, and flags of later ones may be others. Throws InputError when none is clear or usable.
morvix::inspect::EntityModel ReadEntity(const morvix::inspect::json::Document& configuration, const std::string& choice,
                                        Environment& environment);

// Makes a folder, and those above it, where they do not exist. Throws InputError.
void MakeFolder(const std::string& path);

// Replaces a file unless it has this content already. Throws InputError.
void UpdateFile(const std::string& path, const std::string& text, Environment& environment);

// Replaces a file, or writes to standard output for "-". Throws InputError.
void WriteFile(const std::string& path, const std::string& text, Environment& environment);

}  // namespace dp4

#endif
