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

// Sorts the rows. Texts compare without regard to case; rows that are equal in the column keep a
// fixed order by name and folder bytes, so the same rows always come out the same way.
void sortRows(std::vector<FileRow>& rows, const RowOrder& order);

}  // namespace ql
