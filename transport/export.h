#pragma once

/// Marks what libcryptcli-curl hands out; everything else stays hidden in the shared object.
#define CRYPTCLI_CURL_EXPORT __attribute__((visibility("default")))
