#include "vip/run/entry.h"

int main(int argc, char** argv) { return vip_main(argc, argv); }
