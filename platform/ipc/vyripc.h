// The cluster IPC library: the resource table, the node table and the
// semaphore set, all keyed by the folder $VYR_RUN_DIR (default
// /run/vyrcluster). `vyrctl start` creates them and `vyrctl stop` removes
// them; before that every attach fails with its error number.
//
// Each call returns 0 or an error number. The resource-table numbers are the
// SHMRM_ERR_ values below; the node-table and semaphore calls use the same
// numbers where they mean the same thing, plus the VYRIPC_ERR_ values:
//
//   SHMRM_ERR_NOTINIT    nothing started for the run folder (no key file),
//                        or the object is not attached by this process
//   SHMRM_ERR_FTOK       the key could not be made from the key file
//   SHMRM_ERR_SHMGET     the shared table does not exist (or no access)
//   SHMRM_ERR_SHMAT      it could not be mapped
//   SHMRM_ERR_LOADINFO   the object under that key belongs to another run folder
//   VYRIPC_ERR_SEMGET    the semaphore set does not exist (or no access)
//   VYRIPC_ERR_SEMOP     a semaphore operation failed (set removed meanwhile)
//   VYRIPC_ERR_HELD      this process already holds the critical section
//   VYRIPC_ERR_NOTHELD   leave without a matching enter
//
// Attach and detach are per process: an attach maps the object into this
// process (a second attach only counts), a detach undoes one attach. Several
// threads may call the library; attach and detach belong on one thread.
#pragma once

inline constexpr int SHMRM_ERR_NOTINIT = 2;
inline constexpr int SHMRM_ERR_INVALIDPARAM = 3;
inline constexpr int SHMRM_ERR_NOTFOUND = 4;
inline constexpr int SHMRM_ERR_NOTENOUGH = 5;
inline constexpr int SHMRM_ERR_XMLINIT = 6;
inline constexpr int SHMRM_ERR_FTOK = 7;
inline constexpr int SHMRM_ERR_SHMGET = 8;
inline constexpr int SHMRM_ERR_SHMAT = 9;
inline constexpr int SHMRM_ERR_SHMCTL = 10;
inline constexpr int SHMRM_ERR_MAXGRP = 11;
inline constexpr int SHMRM_ERR_MAXRSC = 12;
inline constexpr int SHMRM_ERR_MAXMON = 13;
inline constexpr int SHMRM_ERR_LOADINFO = 14;
inline constexpr int SHMRM_ERR_LOADCONF = 15;

inline constexpr int VYRIPC_ERR_SEMGET = 16;
inline constexpr int VYRIPC_ERR_SEMOP = 17;
inline constexpr int VYRIPC_ERR_HELD = 18;
inline constexpr int VYRIPC_ERR_NOTHELD = 19;

// Size of a status description, terminator included.
inline constexpr int SHMRM_DESCRIPT_SIZE = 128;

int shmrm_attach(void);
int shmrm_detach(void);
// Creates or replaces the row (group, type, resource) with `descript`, read
// from a buffer of `size` bytes: at most size-1 characters are stored, and
// never more than 127. Writers in any number of processes and threads are
// serialised, so a row always holds one whole description. The three names
// key the row exactly as given, empty names included ("", "vip", "" is one
// row, "g", "vip", "" another); a null pointer, a name of 64 bytes or more
// (type: 16) or a size below 1 gives SHMRM_ERR_INVALIDPARAM and stores
// nothing; a full table gives SHMRM_ERR_MAXRSC.
int shmrm_setdescript(const char* group, const char* type, const char* rsc, const char* descript,
                      int size);

int shmnm_attach(void);
int shmnm_detach(void);
// Stores 1 in *flag when this node's npsimu flag is set, else 0.
int shmnm_getnpsimuflag(int* flag);

int sem_attach(void);
int sem_detach(void);
// The interface-change critical section, taken with SEM_UNDO: when a holder
// dies, the kernel releases it. enter blocks until the section is free.
// One holder per process; the last sem_detach leaves a section still held.
int sem_entercrit_ifconfig(void);
int sem_leavecrit_ifconfig(void);
