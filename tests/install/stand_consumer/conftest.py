pytest_plugins = ["cryptcli.testing.plugin"]
