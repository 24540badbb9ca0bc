// The cluster IPC library: the resource table, the node table and the
// semaphore set, all keyed by the folder $VYR_RUN_DIR (default
// /run/vyrcluster). `vyrctl start` creates them and `vyrctl stop` removes
// them; before that every attach fails with its error number.
//
// Each call returns 0 or an error number (the resource-table numbers are the
// SHMRM_ERR_ values below).
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

// Size of a status description, terminator included.
inline constexpr int SHMRM_DESCRIPT_SIZE = 128;

int shmrm_attach(void);
int shmrm_detach(void);
// Creates or replaces the row (group, type, resource) with `descript`
// (at most `size` bytes, cut to 127 characters).
int shmrm_setdescript(const char* group, const char* type, const char* rsc, const char* descript,
                      int size);

int shmnm_attach(void);
int shmnm_detach(void);
// Stores 1 in *flag when this node's npsimu flag is set, else 0.
int shmnm_getnpsimuflag(int* flag);

int sem_attach(void);
int sem_detach(void);
// The interface-change critical section, taken with SEM_UNDO.
int sem_entercrit_ifconfig(void);
int sem_leavecrit_ifconfig(void);
