# The one place that states versions.
set(TESSARIN_VERSION 1.0.0)
# When that version was given, for the records of the packages: year-month-day.
set(TESSARIN_VERSION_DATE 2026-11-22)
# Oldest macOS the application bundle runs on.
set(TESSARIN_MACOS_DEPLOYMENT_TARGET 11.0)
