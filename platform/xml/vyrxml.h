// The cluster XML configuration library.
//
// The configuration is one XML file ($VYR_CONFIG, default
// /etc/vyrcluster/cluster.xml). A path such as
// "/root/resource/vip@vip1/parameters/ping/retry" is read from the root
// element down: "tag" names the child <tag> without a name attribute,
// "tag@x" the child <tag name="x">. Values are the element's text exactly as
// written. Lookups read the current configuration first, then the loaded
// policies ($VYR_POLICY_DIR/<type>.xml).
//
// Every call returns 0 or one of the VYR_XMLERR_ codes. The library is meant
// for one thread at a time (the agent's main thread); lookups do not change
// state and may run while no load or unload is in progress.
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

int xmllib_init(const char* type);
int xmllib_term(void);
int xmllib_load_config(void);
int xmllib_unload_config(void);
int xmllib_load_policy(const char* type);
int xmllib_unload_policy(const char* type);

// Type 0: copies the text and its terminator into `buf` (capacity *size).
// Type 1: a whole decimal number into the int at `buf` (*size at least 4).
int xmllib_get_value(const char* path, int type, void* buf, int* size);

// Reads `path` with "server@<server>" inserted after the resource segment
// (the third segment: /root/resource/vip@vip1/server@node1/...), then `path`.
int xmllib_get_srvsep_value(const char* server, const char* path, int type, void* buf, int* size);

// Lists the name attributes of the children named by the last segment of
// `path`, as 256-byte NUL-padded entries. With a null `buf` stores the bytes
// needed in *size.
int xmllib_enum_value(const char* path, char* buf, int* size);

// The configuration under check: another file of the same format.
int xmllib_load_pathconfig(const char* file, void** handle);
int xmllib_change_config(void* handle);
int xmllib_unload_pathconfig(void* handle);
