// Administration of the cluster IPC objects, for `vyrctl` and for tests:
// making and removing the tables and the semaphore set of $VYR_RUN_DIR,
// reading the resource table and setting the npsimu flag. The agent itself
// only uses vyripc.h.
#pragma once

#include <string>
#include <vector>

#include "vyripc.h"

// The run folder the objects are keyed by ($VYR_RUN_DIR or /run/vyrcluster).
std::string vyripc_run_dir(void);

// Makes whatever of the resource table, the node table and the semaphore set
// does not exist yet (the run folder and its key file too). *already is set
// to 1 when all three existed, 0 otherwise. Returns 0 or an error number;
// on an error nothing this call made is left behind. Tables found for the
// same key but made for another run folder give SHMRM_ERR_LOADINFO.
int vyripc_create(int* already);

// Removes the three objects and the key file. *removed counts the objects
// that were there. Processes still attached keep their mapping until they
// detach; their next semaphore operation fails. Returns 0 or an error number.
int vyripc_remove(int* removed);

// errno of the last failed system call made by the library on this thread.
int vyripc_last_errno(void);

// A short English text for an error number of this library.
const char* vyripc_strerror(int err);

struct ShmrmRow {
  std::string group;
  std::string type;
  std::string rsc;
  std::string descript;
};

// Copies every row of the attached resource table, in the order the rows
// were made. Returns 0 or an error number (SHMRM_ERR_NOTINIT when not attached).
int shmrm_listrows(std::vector<ShmrmRow>* rows);

// Copies the description of one row into `out` (`size` bytes, always
// terminated). SHMRM_ERR_NOTFOUND when the row does not exist.
int shmrm_getdescript(const char* group, const char* type, const char* rsc, char* out, int size);

// Sets (1) or clears (0) this node's npsimu flag in the attached node table.
int shmnm_setnpsimuflag(int flag);
