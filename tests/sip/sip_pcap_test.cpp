#include "sip_test_host.h"
