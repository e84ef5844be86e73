#include <rkutils/hash_context.h>

HashContext::~HashContext() = default;
