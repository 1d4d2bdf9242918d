#pragma once

#include <QString>

/// Create the data with which a module leaves the factory, unless its data directory exists.
///
/// The recipe is the directory `recipe`. Each "*.sql" in it fills the database of its base name; the file
/// "content.tsv" lists directories, files and pipes, one a line, with tab-separated fields:
///
///     directory PATH
///     text      PATH  TEXT      "\n" stands for a line feed
///     copy      PATH  FILE      a file of the recipe
///     noise     PATH  SIZE      that many bytes that only the path decides
///     pipe      PATH
///
/// Paths are relative to the data directory; the directories on the way to a file are made. Empty lines and
/// lines that start with "#" are skipped. A module without a recipe gets an empty directory. The data appear
/// all at once or, when the result is false, not at all; the reason is then logged.
bool createModuleData(const QString &recipe, const QString &dataDirectory);

enum AddedFiles { KeepAddedFiles, RemoveAddedFiles };

/// Bring the module's files back to what the recipe says; databases ("*.data" and their journals) stay as
/// they are. When added files are kept, so is everything but the texts and copies of the recipe. False, with
/// the reason logged, when that failed.
bool resetModuleFiles(const QString &recipe, const QString &dataDirectory, AddedFiles addedFiles);
