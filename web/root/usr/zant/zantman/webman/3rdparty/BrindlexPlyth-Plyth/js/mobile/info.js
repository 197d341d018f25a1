/*
 * Item page for phones and tablets: the item may be previewed, and read
 * when "btns" holds a second entry (download). "file_info": {file_id,
 * name, type}. The server leaves the content title empty and puts the name
 * into the description; this script draws the heading itself.
 */
(function () {
  'use strict';

  var M = window.PlythMobile;
  var BASE = 'webman/3rdparty/BrindlexPlyth-Plyth/';

  // The preview of a file, or the browser of a folder, below the heading.
  // A second button label means the visitor may read (download, play).
  function showContent(state, file, name) {
    var main = document.querySelector('.plyth-mobile-main');
    var actions = document.getElementById('plyth-mobile-actions');
    if (!main || !state.permanent_link) return;
    var box = M.el('div', 'plyth-mobile-content', null, { id: 'plyth-mobile-content' });
    main.insertBefore(box, actions);
    var options = {
      link: state.permanent_link,
      sharingLink: state.sharing_link || '',
      canRead: Array.isArray(state.btns) && state.btns.length > 1,
    };
    M.loadScript(BASE + 'viewers.js').then(function () {
      window.PlythViewers.ready(BASE, function () {
        if (file.type === 'dir') {
          window.PlythViewers.browse(box, options);
          return;
        }
        window.PlythViewers.render(box, { file_id: file.file_id, name: name, type: file.type }, options).then(function (shown) {
          var icon = document.getElementById('plyth-mobile-icon');
          if (icon) icon.hidden = shown;
        });
      });
    });
  }
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
    showContent(state, file, name);
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
