#pragma once

/// Marks what libcryptcli-curl exports; everything else is hidden in the shared object.
#define CRYPTCLI_CURL_EXPORT __attribute__((visibility("default")))
