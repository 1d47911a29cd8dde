// Test helper: direct access to a database file through the HDF5 C API,
// independent of the library, for checking and tampering with what it wrote.
#ifndef DDB_TESTS_SUPPORT_H5_RAW_H_
#define DDB_TESTS_SUPPORT_H5_RAW_H_

#include <string>
#include <vector>

typedef std::vector<unsigned char> Bytes;

// The bytes of a one-dimensional dataset (empty when missing).
Bytes RawDatasetBytes(const std::string& file, const std::string& dataset);
// Replaces a dataset's content (its extent becomes bytes.size()).
void RawWriteDataset(const std::string& file, const std::string& dataset, const Bytes& bytes);
// Writes the 80-byte "class" attribute of a group.
void RawWriteClass(const std::string& file, const std::string& group, const std::string& id);
// Deletes a link (group, dataset) or, with `attribute`, an attribute of `object`.
void RawDelete(const std::string& file, const std::string& object, const char* attribute = nullptr);
// Names of the children of a group, sorted.
std::vector<std::string> RawChildren(const std::string& file, const std::string& group);
// The NUL-terminated text of a group's "class" attribute.
std::string RawClass(const std::string& file, const std::string& group);
// The elements of an integer attribute of an object, all dimensions flattened
// (empty when the attribute is missing).
std::vector<int> RawInts(const std::string& file, const std::string& object,
                         const std::string& attribute);

// Little-endian encoders for expected stream bytes.
void PutInt(Bytes& out, int value);
// The external form of a collection (kind 1), set (2) or distribution (3) identifier.
void PutId(Bytes& out, int kind, unsigned first, unsigned second = 0);
void PutString(Bytes& out, const std::string& text);
// An IEEE double, little-endian.
void PutDouble(Bytes& out, double value);
// A whole stream: the length header, then `body`.
Bytes Stream(const Bytes& body);

#endif  // DDB_TESTS_SUPPORT_H5_RAW_H_
