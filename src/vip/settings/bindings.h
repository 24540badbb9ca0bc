// The agent's bindings to the cluster's resource table, node table and
// semaphore set. No wrapper fails its caller: a failed attach is traced and
// the run goes on without that object. Main thread only.
#pragma once

extern int shmrmflag;     // resource table attached
extern int shmnmflag;     // node table attached
extern int semflag;       // semaphore set attached
extern int sementifflag;  // inside the interface-change critical section

int vip_shmrm_attach(void);
int vip_shmrm_detach(void);
// Stores the status description ("Success." when empty) for the resource.
int vip_shmrm_setdescript(const char* rscname, const char* grpname);
int vip_shmnm_attach(void);
int vip_shmnm_detach(void);
int vip_shmnm_getnpsimuflag(int* npsimuflag);
int vip_sem_attach(void);
int vip_sem_detach(void);
int vip_sem_entercrit_ifconfig(void);
int vip_sem_leavecrit_ifconfig(void);
