// Starts the page.
