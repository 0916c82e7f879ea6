/*
 * kel_status.h -- the one list of status codes of the whole engine.
 *
 * Every call that can fail returns (or stores through a last unsigned*
 * parameter) a 32-bit status: 0 is success, everything else has the form
 * 0x0737xxxx:
 *   0x073700xx  general
 *   0x073702xx  compound file
 *   0x073717xx  spreadsheet logic
 *   0x07371Bxx  ZIP
 *
 * The list is written once, as KEL_STATUS_LIST, so that the named constants
 * and any table of names (a host printing "NAME (0x...)") come from the same
 * lines and cannot drift apart.  Plain C; usable from C and C++.
 */
#ifndef KEL_STATUS_H
#define KEL_STATUS_H

#define KEL_STATUS_LIST(X)                                                      \
  X(KEL_ERR_OUT_OF_MEMORY,        0x07370001, "allocation failed")              \
  X(KEL_ERR_INVALID_ARGUMENT,     0x07370003, "null handle or result pointer")  \
  X(KEL_ERR_OUT_OF_RANGE,         0x07370004, "bad sheet, cell or list position") \
  X(KEL_ERR_BAD_INDEX,            0x07370005, "list index at or past the end")  \
  X(KEL_ERR_BAD_XML_DATA,         0x07370007, "a package part lacks something required") \
  X(KEL_ERR_NOT_FOUND,            0x073700FE, "named thing not present")        \
  X(KEL_ERR_GENERAL,              0x073700FF, "corrupt record, failed seek or other failure") \
  X(KEL_ERR_END_OF_FILE,          0x07370104, "read past the end of a stream")  \
  X(KEL_ERR_CANNOT_OPEN_FILE,     0x07370109, "the file cannot be opened")      \
  X(KEL_ERR_OLE_BAD_CHAIN,        0x07370201, "compound file: bad signature or broken sector chain") \
  X(KEL_ERR_OLE_CHAIN_END,        0x07370202, "compound file: chain ended early") \
  X(KEL_ERR_OLE_NOT_STREAM,       0x07370204, "compound file: the entry is no stream") \
  X(KEL_ERR_OLE_NO_ENTRY,         0x0737027E, "compound file: no such entry")   \
  X(KEL_ERR_OLE_FILE_TOO_LARGE,   0x0737027F, "compound file: too many allocation table sectors") \
  X(KEL_ERR_OLE_NO_DIRECTORY,     0x07370280, "compound file: no directory sector to extend") \
  X(KEL_ERR_OLE_NAME_EXISTS,      0x07370281, "compound file: a stream of this name exists") \
  X(KEL_ERR_OLE_NO_FREE_SECTOR,   0x073702FE, "compound file: allocation ended early") \
  X(KEL_ERR_OLE_BAD_HEADER,       0x073702FF, "compound file: too many DIFAT sectors") \
  X(KEL_ERR_NOT_BIFF8,            0x07371701, "no workbook stream: an older format or no workbook") \
  X(KEL_ERR_DIV_ZERO,             0x07371705, "divide by zero")                 \
  X(KEL_ERR_NUM,                  0x07371706, "number out of domain")           \
  X(KEL_ERR_VALUE,                0x07371707, "value of the wrong kind")        \
  X(KEL_ERR_REF,                  0x07371708, "a reference does not resolve")   \
  X(KEL_ERR_PROPAGATED,           0x07371709, "an error value was passed on")   \
  X(KEL_ERR_DATE_BEFORE_START,    0x0737170E, "month arithmetic reached the first year") \
  X(KEL_ERR_DATE_FIELD_RANGE,     0x0737170F, "a date or time field out of range") \
  X(KEL_ERR_DATE_NO_DAY,          0x07371710, "the date has no day number")     \
  X(KEL_ERR_EXTERNAL_REFERENCE,   0x07371711, "a reference leads outside this workbook") \
  X(KEL_ERR_CELL_LOCKED,          0x07371714, "the cell is part of an array")   \
  X(KEL_ERR_UNSUPPORTED,          0x07371715, "the content is not supported")   \
  X(KEL_ERR_SHEET_FULL,           0x07371716, "rows or columns cannot be inserted") \
  X(KEL_ERR_CIRCULAR_REFERENCE,   0x07371717, "circular reference")             \
  X(KEL_ERR_LOCKED_CELL,          0x07371719, "the cell is locked on a protected sheet") \
  X(KEL_ERR_SHEET_PROTECTED,      0x0737171A, "the sheet is protected")         \
  X(KEL_ERR_NOTHING_TO_UNDO,      0x0737171B, "nothing to undo")                \
  X(KEL_ERR_CANNOT_UNDO,          0x0737171C, "the last command cannot be undone") \
  X(KEL_ERR_NOTHING_TO_REDO,      0x0737171D, "nothing to redo")                \
  X(KEL_ERR_SORT_MERGED_CELLS,    0x07371722, "a merged range overlaps the range to sort") \
  X(KEL_ERR_SORT_NO_SPACE,        0x07371723, "a sort failed for lack of space") \
  X(KEL_ERR_WRONG_PASSWORD,       0x07371732, "wrong password")                 \
  X(KEL_ERR_PASSWORD_CANCELLED,   0x07371734, "the user gave no password")      \
  X(KEL_ERR_BAD_ENCRYPTION_TYPE,  0x07371737, "encryption other than RC4")      \
  X(KEL_ERR_CELL_WARNING,         0x07371738, "a warning from writing a cell")  \
  X(KEL_ERR_DISK_FULL,            0x0737173A, "no space left on the device")    \
  X(KEL_ERR_SHEET_TOO_LARGE,      0x0737173B, "beyond column 255 or row 65535") \
  X(KEL_ERR_ENCRYPTED_PACKAGE,    0x0737173C, "an encrypted OOXML package")     \
  X(KEL_ERR_MISSING_RESOURCE,     0x0737173F, "the gradient picture is missing") \
  X(KEL_ERR_ZIP_FAILURE,          0x07371BFF, "failure of the ZIP layer")

/* In C++ the codes are unsigned 32-bit constants, the type that statuses are
 * passed in; C gets them as enumerators. */
#ifdef __cplusplus
#include <stdint.h>
#define KEL_STATUS_CONSTANT(name, value, text) constexpr uint32_t name = value##u;
KEL_STATUS_LIST(KEL_STATUS_CONSTANT)
#undef KEL_STATUS_CONSTANT
#else
#define KEL_STATUS_ENUMERATOR(name, value, text) name = value,
enum kel_status_code { KEL_STATUS_LIST(KEL_STATUS_ENUMERATOR) };
#undef KEL_STATUS_ENUMERATOR
#endif

#endif /* KEL_STATUS_H */
