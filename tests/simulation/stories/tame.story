# Nothing but what the application does by itself: one module, no faults.
