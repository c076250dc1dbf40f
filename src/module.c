/* The module's own translation unit; everything else comes from the core. */
