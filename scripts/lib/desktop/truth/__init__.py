"""The truth walk: random steps through a real browser, each judged by what the browser itself says its address field shows.

    seat        keyboard, pointer and windows of a session; another kind of session is another Seat
    browsers    browsers that can be asked (through remote_protocols) what their windows show
    pages       pages that tell the server what happened to them
    daemon      the daemon's end, which takes the agent's reports and asks it
    observer    looks at browser and agent all the time and keeps what changed when
    steps       the kinds of steps; walk draws and judges them; report sums up
    growth      what the agent uses up while it is walked with
"""
