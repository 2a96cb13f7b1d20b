// Removed once the first simulator lands.
