// The check log of configuration check mode.
#pragma once

int chk_log_init(const char* type, const char* rscname, const char* rdrctfile);
int chk_log_write(int level, int index, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
int chk_log_term(const char* type, const char* rscname);
int chk_log_start(const char* type, const char* rscname);
int chk_log_end(const char* type, const char* rscname);
