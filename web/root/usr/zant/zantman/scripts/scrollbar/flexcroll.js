/*
 * Scroll bars of the desktop pages. The pages scroll with the browser's own
 * scroll bars (styled in desktop.css), so there is nothing to set up; the
 * file stays because the desktop's page frame names it.
 */
