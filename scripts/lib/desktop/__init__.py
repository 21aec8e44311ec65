"""A desktop of one's own: display, window manager, buses, accessibility, browsers and pages, for demo, tests and benchmarks.

Standard library only. Everything started here is ended, and every folder made here is removed, when the desktop is closed,
whatever the reason: normal end, exception, SIGINT, SIGTERM or SIGHUP.
"""
