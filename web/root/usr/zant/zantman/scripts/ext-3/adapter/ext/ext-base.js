/*
 * Base layer of the desktop pages: the DOM helpers every page script of the
 * appliance builds on. Plain DOM, no globals beyond window.ZANTUI.
 *
 * The pages run under a security policy without inline scripts or inline
 * styles, so nothing here writes style attributes or HTML text: elements are
 * made with createElement, text goes in with textContent, looks come from
 * CSS classes.
 */
(function () {
  'use strict';

  var UI = (window.ZANTUI = window.ZANTUI || {});

  // Runs fn once the page is parsed (at once when it already is).
  UI.ready = function (fn) {
    if (document.readyState === 'loading') {
      document.addEventListener('DOMContentLoaded', fn, { once: true });
    } else {
      fn();
    }
  };

  // el('p', 'a b', 'text', {href: '...'}): a new element. Attributes are set
  // with setAttribute, so names starting with "on" and "style" are refused.
  UI.el = function (tag, className, text, attrs) {
    var node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined && text !== null && text !== '') node.textContent = String(text);
    if (attrs) {
      Object.keys(attrs).forEach(function (name) {
        var value = attrs[name];
        if (value === undefined || value === null || value === false) return;
        if (/^on/i.test(name) || name.toLowerCase() === 'style') {
          throw new Error('ZANTUI.el: attribute ' + name + ' is not allowed');
        }
        node.setAttribute(name, value === true ? '' : String(value));
      });
    }
    return node;
  };

  // Appends the children that are nodes; skips null and undefined.
  UI.append = function (parent) {
    for (var i = 1; i < arguments.length; i++) {
      if (arguments[i]) parent.appendChild(arguments[i]);
    }
    return parent;
  };

  UI.clear = function (node) {
    while (node.firstChild) node.removeChild(node.firstChild);
    return node;
  };

  UI.show = function (node, visible) {
    node.hidden = !visible;
    return node;
  };
})();
