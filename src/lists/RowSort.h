#pragma once
// The order of a file list: one column and one direction for the whole list.

#include <vector>

#include "lists/FileRow.h"

namespace ql {

enum class RowKey { Name, Size, Folder, Extension, Type, Attributes, Modified, Created, Accessed };

struct RowOrder {
  RowKey key = RowKey::Size;
  bool descending = true;  // largest, latest or last in the alphabet first
};

// Sorts the rows. Texts compare without regard to case; rows that are equal in the column keep
// the order they had.
void sortRows(std::vector<FileRow>& rows, const RowOrder& order);
// The same for rows in no order of their own (fresh from a listing): equal rows come out by the
// bytes of their names and folders, so the same rows always come out the same way.
void sortRowsFresh(std::vector<FileRow>& rows, const RowOrder& order);

}  // namespace ql
