/* The header compiles as C11 without a warning, and a program of C alone links and runs. */
#include <cryptcli/cryptcli.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

static void check(int condition, const char *what) {
  if (condition) return;
  fprintf(stderr, "failed: %s\n", what);
  ++failures;
}

int main(void) {
  cryptcli_options *options = cryptcli_options_new();
  cryptcli_client *client = NULL;
  cryptcli_error *error = NULL;
  check(strcmp(cryptcli_version(), "1.0.0") == 0, "version");
  check(strstr(cryptcli_build_info(), "libcurl/") != NULL, "build info names libcurl");
  check(cryptcli_client_new(options, &client, &error) == CRYPTCLI_INVALID_ARGUMENT, "a client needs a service");
  check(client == NULL, "no client");
  check(strcmp(cryptcli_error_message(error), "No URL of the crypt service") == 0, "reason");
  cryptcli_error_free(error);
  error = NULL;

  check(cryptcli_options_set_service(options, "http://127.0.0.1:1/api", NULL) == CRYPTCLI_OK, "service");
  check(cryptcli_client_new(options, &client, &error) == CRYPTCLI_OK, "client");
  check(error == NULL, "no error");
  check(cryptcli_encrypt(client, "room", cryptcli_path("/dev/null"), cryptcli_descriptor(1), NULL, NULL, &error) ==
            CRYPTCLI_UNREACHABLE,
        "nobody listens");
  check(cryptcli_error_is_retryable(error) == 1, "worth another attempt");
  cryptcli_error_free(error);
  cryptcli_client_free(client);
  cryptcli_options_free(options);
  return failures == 0 ? 0 : 1;
}
