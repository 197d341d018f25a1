/*
 * Item page for phones and tablets: the item may be previewed, and read
 * when "btns" holds a second entry (download). "file_info": {file_id,
 * name, type}. The server leaves the content title empty and puts the name
 * into the description; this script draws the heading itself.
 */
(function () {
  'use strict';

  var M = window.PlythMobile;
  M.ready(function () {
    var state = M.state();
    var file = state.file_info || {};
    var name = typeof file.name === 'string' ? file.name : '';
    M.setIcon(M.category(name, file.type));
    var title = document.querySelector('.plyth-mobile-title');
    var desc = document.querySelector('.plyth-mobile-desc');
    if (title && name) {
      title.textContent = name;
      if (desc) desc.hidden = true;
    }
    M.buttons(state.btns, [
      // Without the app, this page is the browser view: the download
      // (when there is one) takes the focus.
      M.openApp(state, function () {
        var download = document.getElementById('plyth-download');
        if (download) download.focus();
      }),
      // Folders are not downloaded; a second label means the item is readable.
      file.type === 'dir'
        ? null
        : {
            href: M.downloadURL(state),
            download: name || 'download',
            id: 'plyth-download',
            fallback: 'Download',
            check: function () {
              return M.downloadProblem(state);
            },
          },
    ]);
  });
})();
