/* protect_program SERVICE ROOM SOURCE TARGET: protects one file, as a process of its own. */
#include <cryptcli/cryptcli.h>
#include <stdio.h>

int main(int argc, char **argv) {
  cryptcli_options *options = cryptcli_options_new();
  cryptcli_client *client = NULL;
  cryptcli_error *error = NULL;
  cryptcli_status status = CRYPTCLI_INVALID_ARGUMENT;
  if (argc == 5 && cryptcli_options_set_service(options, argv[1], &error) == CRYPTCLI_OK &&
      cryptcli_client_new(options, &client, &error) == CRYPTCLI_OK) {
    status = cryptcli_encrypt(client, argv[2], cryptcli_path(argv[3]), cryptcli_path(argv[4]), NULL, NULL, &error);
  }
  if (status != CRYPTCLI_OK) fprintf(stderr, "%s\n", cryptcli_error_message(error));
  cryptcli_error_free(error);
  cryptcli_client_free(client);
  cryptcli_options_free(options);
  return status == CRYPTCLI_OK ? 0 : 1;
}
