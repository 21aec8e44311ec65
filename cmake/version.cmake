# The one place that states versions.
set(TESSARIN_VERSION 1.0.0)
# Oldest macOS the application bundle runs on.
set(TESSARIN_MACOS_DEPLOYMENT_TARGET 11.0)
