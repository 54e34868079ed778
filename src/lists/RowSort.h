#pragma once
// The order of a file list: one column and one direction for the whole list. Rows stay where
// they are; an order is a list of row numbers.

#include <cstdint>
#include <vector>

#include "lists/FileRow.h"

namespace ql {

enum class RowKey { Name, Size, Folder, Extension, Type, Attributes, Modified, Created, Accessed };

struct RowOrder {
  RowKey key = RowKey::Size;
  bool descending = true;  // largest, latest or last in the alphabet first
};

// Puts the row numbers in `order` in the order of the column. Texts compare without regard to
// case; rows that are equal in the column keep the order they had.
void sortOrder(const std::vector<FileRow>& rows, std::vector<uint32_t>& order, const RowOrder& by);

// The order of rows fresh from a listing: equal rows by the bytes of their names and folders,
// so the same rows always come out the same way.
std::vector<uint32_t> freshOrder(const std::vector<FileRow>& rows, const RowOrder& by);

// The rows themselves moved into an order (for lists kept elsewhere than in a list model).
void sortRows(std::vector<FileRow>& rows, const RowOrder& by);

}  // namespace ql
