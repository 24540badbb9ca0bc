// The cluster XML configuration library.
//
// The configuration is one XML file ($VYR_CONFIG, default
// /etc/vyrcluster/cluster.xml). A path such as
// "/root/resource/vip@vip1/parameters/ping/retry" is read from the root
// element down: "tag" names the child <tag> without a name attribute,
// "tag@x" the child <tag name="x">; the first such child in document order
// counts. Values are the element's text exactly as written (never
// trimmed). Lookups read the current configuration first, then the loaded
// policies ($VYR_POLICY_DIR/<type>.xml, default VYR_DEFAULT_POLICY_DIR) in
// the order they were loaded.
//
// Every call returns 0 or one of the VYR_XMLERR_ codes. The library is meant
// for one thread at a time (the agent's main thread); lookups do not change
// state and may run on any thread while no load or unload is in progress
// (an internal lock keeps a lookup from seeing a document being freed).
//
// Calls made before xmllib_init give VYR_XMLERR_NOT_INIT; lookups while no
// configuration is loaded give VYR_XMLERR_NOT_LOAD.
#pragma once

inline constexpr int VYR_XMLERR_SUCCESS = 0;
inline constexpr int VYR_XMLERR_NOT_INIT = 1;
inline constexpr int VYR_XMLERR_NOT_LOAD = 2;
inline constexpr int VYR_XMLERR_NOTENOUGH_SIZE = 3;
inline constexpr int VYR_XMLERR_NOTEXIST_PATH = 4;
inline constexpr int VYR_XMLERR_NOTEXIST_VALUE = 5;
inline constexpr int VYR_XMLERR_INVALID_PATH = 6;
inline constexpr int VYR_XMLERR_INVALID_XML = 7;
inline constexpr int VYR_XMLERR_INVALID_HANDLE = 8;
inline constexpr int VYR_XMLERR_INVALID_CONTENTS = 9;
inline constexpr int VYR_XMLERR_OTHER = 10;

// Value types of a lookup.
inline constexpr int VYR_XMLTYPE_TEXT = 0;
inline constexpr int VYR_XMLTYPE_INT = 1;

// Size of one entry of an enumeration.
inline constexpr int VYR_XML_ENUM_ENTRY = 256;

// Initialises the library for a module type ("vip"); a null or empty type
// gives VYR_XMLERR_OTHER. xmllib_term releases everything that is loaded.
int xmllib_init(const char* type);
int xmllib_term(void);

// Loads (or reloads) $VYR_CONFIG. A file that cannot be read gives
// VYR_XMLERR_NOT_LOAD, a malformed one VYR_XMLERR_INVALID_XML; both leave
// the reason in xmllib_last_error() and print it on standard error.
int xmllib_load_config(void);
// VYR_XMLERR_NOT_LOAD when no configuration is loaded.
int xmllib_unload_config(void);

// Loads $VYR_POLICY_DIR/<type>.xml. Loads of one type are counted: the
// policy stays until as many unloads have been made. A type without a file
// fails like xmllib_load_config; a type with '/' gives
// VYR_XMLERR_INVALID_PATH; unloading a type that is not loaded gives
// VYR_XMLERR_NOT_LOAD.
int xmllib_load_policy(const char* type);
int xmllib_unload_policy(const char* type);

// Type 0: copies the text and its terminator into `buf` (capacity *size);
// VYR_XMLERR_NOTENOUGH_SIZE when it does not fit. Empty text is the empty
// value.
// Type 1: "[+-]digits" into the int at `buf` (*size at least 4, else
// VYR_XMLERR_NOTENOUGH_SIZE); empty text gives VYR_XMLERR_NOTEXIST_VALUE,
// anything else that is not such a number, or lies outside the int range,
// VYR_XMLERR_INVALID_CONTENTS.
// A path naming no element gives VYR_XMLERR_NOTEXIST_PATH, a path that is
// not "/seg/seg..." VYR_XMLERR_INVALID_PATH, another type VYR_XMLERR_OTHER.
// *size is never changed; `buf` only on success.
int xmllib_get_value(const char* path, int type, void* buf, int* size);

// Reads `path` with "server@<server>" inserted after the resource segment
// (the third segment: /root/resource/vip@vip1/server@node1/...); when that
// names no element (only then), reads `path` itself. A null or empty server
// reads `path` alone.
int xmllib_get_srvsep_value(const char* server, const char* path, int type, void* buf, int* size);

// Lists the name attributes of the children named by the last segment of
// `path` (a plain tag), in document order, as 256-byte NUL-padded entries;
// children without a name are not listed. None gives
// VYR_XMLERR_NOTEXIST_PATH. With a null `buf` stores the bytes needed in
// *size and returns 0; a *size below that gives VYR_XMLERR_NOTENOUGH_SIZE
// with the bytes needed in *size. On success *size is the bytes written.
int xmllib_enum_value(const char* path, char* buf, int* size);

// The configuration under check: another file of the same format.
// xmllib_load_pathconfig stores a handle for it (errors as for
// xmllib_load_config); after xmllib_change_config every lookup reads it
// instead of the running configuration; xmllib_unload_pathconfig releases
// it, and lookups read the running configuration again. A handle this
// library did not give out (or already released) gives
// VYR_XMLERR_INVALID_HANDLE.
int xmllib_load_pathconfig(const char* file, void** handle);
int xmllib_change_config(void* handle);
int xmllib_unload_pathconfig(void* handle);

// Why the last load of this thread failed: "<file>: cannot read: <reason>"
// or "<file>:<line>:<column>: malformed XML: <reason>"; empty after a
// successful load. The text stays valid until the thread's next load.
const char* xmllib_last_error(void);
