#include "export_test_support.h"
