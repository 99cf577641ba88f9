#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "utility/Export.h"

namespace utility {

namespace detail {
class CsvScanner;
}

/// A comma-separated file whose records are read, inserted and deleted in place.
///
/// One object works on one file. Records are addressed by the current position, 0 to the number of
/// records; that number itself means the end of the file, and that is where `Open` leaves it:
///
///     CCSV csv;
///     char** record = nullptr;
///     int cols = 0;
///     if (csv.Open("hosts.csv") && csv.SetCurPos(0)) {
///       while (csv.ReadRecord(&record, &cols)) CCSV::FreeRecord(record);
///     }
///     csv.Close();
///
/// Syntax: fields are separated by ","; a record ends at LF. Inside double quotes "," and LF are
/// literal and a doubled quote stands for one. Outside quotes blanks and CR are dropped wherever
/// they stand, so `a b` reads as `ab`. Records are written with CR LF. A last line without LF is
/// not counted as a record.
///
/// Record arrays (`char**`) hold one `new[]`-allocated C string per field and an empty string
/// after the last. The first empty string ends the array for `FreeRecord` and for the quoting step
/// of `WriteRecord`, so an empty field in the middle ends the record there.
///
/// Reading goes in blocks and remembers where records begin; N records in order cost N. Size and
/// times of the file are looked at in every call, except that reading records in order looks once
/// per tick of the kernel's coarse clock (1 to 4 ms), and what was remembered is dropped when they
/// changed; a change that leaves all of them (same length, within one tick) is not seen. The counts
/// stay as `Open` found them, even where another process changes the file. The file is not locked.
///
/// `WriteRecord` and `NeatenFile` make "~tempfile.csv" in the working directory of the process; a
/// left-over one is removed first. So these two must not run at once in one directory, not even on
/// different files.
///
/// Hazard: the destructor does not close the file; call `Close`.
///
/// Different objects may be used on different threads; one object only on one at a time.
class UTILITY_API CCSV {
 public:
  CCSV();
  /// Releases the object's memory. The file stays open if `Close` was not called.
  ~CCSV();
  CCSV(const CCSV&) = delete;
  CCSV& operator=(const CCSV&) = delete;

  /// Creates the file `path` or empties it, and opens it; what was open before is closed.
  ///
  /// The counts are 0, and so is the position.
  /// @return false when `path` is null or cannot be created; nothing is open then.
  bool Create(const char* path);

  /// Opens the existing file `path` for reading and writing and counts its records and columns;
  /// what was open before is closed. The position is the end of the file.
  ///
  /// @return false when `path` is null, cannot be opened or cannot be read; nothing is open then.
  bool Open(const char* path);

  /// Closes the file, if one is open, and sets counts and position to 0.
  void Close();

  /// The number of records: as found by `Open`, one more for each record written, one less for each
  /// deleted.
  int GetRecordCount() const;
  /// The current position, 0 to the number of records.
  int GetCurPos() const;
  /// The number of columns of the first record, or the number of fields of the record read last.
  int GetColCnt() const;

  /// Moves the current position.
  ///
  /// @param pos  0 to the number of records, or -1 for the end.
  /// @return false, with the position kept and a message (in GBK) on standard output, for any
  ///         other.
  bool SetCurPos(int pos);

  /// Moves the stream to where the current record begins; position 0 is the file's start, the
  /// number of records its end.
  ///
  /// @return false when nothing is open, or the file has been cut and no longer has this record.
  bool MoveFpPos();

  /// Reads the record at the current position, which is kept.
  ///
  /// @param fields  receives the fields; appended to, never cleared.
  /// @return true, also at the end of the file. A record cut off by the end of the file yields its
  ///         completed fields only. False as from `MoveFpPos`, or when reading fails. On failure
  ///         `fields` is untouched.
  bool GetCols(std::vector<std::string>& fields);

  /// Reads the record at the current position as an array, and moves to the next.
  ///
  /// @param record  receives the array, to be released with `FreeRecord`.
  /// @param cols    receives the number of fields.
  /// @return false when an argument is null, at the end of the file, where `GetCols` fails, or when
  ///         memory is short. On failure `record` and the position are untouched.
  bool ReadRecord(char*** record, int* cols);

  /// Releases an array: its strings up to the first empty one, that one, and the array. Null is
  /// ignored.
  ///
  /// Hazard: what follows an empty field, the final empty string included, is not reached; who
  /// reads such records must `delete[]` that too, by the count that `ReadRecord` gave.
  static void FreeRecord(char** record);

  /// Inserts a record before the current one (at the end: appends it), and moves after it.
  ///
  /// The bytes from there to the end of the file are moved through the temporary file. Progress
  /// goes to standard output: the size of the last, partial block of these bytes, if there is one,
  /// and "delete file successfully" or "file not delete".
  ///
  /// A crash leaves the old file or the new one, perhaps beside the temporary file. Where more than
  /// 4,096 bytes have to move, it may leave a file in which only some have, with a piece as long as
  /// the record missing after these; the temporary file holds all of them then.
  ///
  /// @param fields  a record array. Its strings are quoted as by `TransfromCsv`, which replaces
  ///                them: they must come from `new[]`. It stays the caller's.
  /// @param count   the number of fields to write, at least 1; empty ones count.
  /// @return false when nothing is open, `fields` is null, `count` is below 1, the position is gone
  ///         (see `MoveFpPos`), memory is short, the temporary file cannot be made (a message in
  ///         GBK says so), or a write fails. On failure the file is as it was.
  bool WriteRecord(const char** fields, int count);

  /// Deletes the record at the current position by blanking it, line end included; the blanks
  /// belong to the next record, which is the current one now. At the end of the file nothing
  /// happens. A record of up to 1 MiB is blanked at once: a crash leaves it whole or blank.
  ///
  /// @return false where `MoveFpPos` fails, memory is short or a write fails.
  bool DelRecord();

  /// Rewrites the file without unquoted blanks, and with CR LF in place of each record's LF. A CR
  /// that already stood before the LF stays, so each run adds one. Bytes after the last record's
  /// end are not kept. The new file is on the disk before it takes the old one's place; a crash
  /// leaves one of the two whole, the old one perhaps beside the temporary file.
  ///
  /// @param path  the file to read where none is open, and the file to replace in any case, also
  ///              where another is open. The new file gets the owner and mode of the one replaced.
  /// @return true with the object closed: call `Open` again. False when `path` is null or cannot be
  ///         opened, or the temporary file cannot be made (a message in GBK says so) or written: an
  ///         open file stays open then. False with the object closed when the temporary file cannot
  ///         take the place of `path`, for example because the working directory lies on another
  ///         file system. On failure the file is as it was.
  bool NeatenFile(const char* path);

  /// Quotes the fields of a record array for writing, up to the first empty one.
  ///
  /// A field that holds a blank, ",", LF or a double quote is replaced by a new `new[]` string in
  /// which it is enclosed in double quotes and its own double quotes are doubled, except one that
  /// is its last character: such a field does not read back. Other fields, a CR among them, stay.
  /// Null is ignored, and where memory is short the fields from there on stay as they are.
  static void TransfromCsv(char** fields);

 private:
  FILE* m_fp = nullptr;
  int m_cols = 0;
  int m_records = 0;
  int m_cur = 0;
  std::string m_path;
  char** m_record = nullptr;
  const char* m_temp_name = "~tempfile.csv";
  int m_block = 4096;
  /// There exactly while a file is open.
  std::unique_ptr<detail::CsvScanner> m_scanner;
};

}  // namespace utility
