// The page's side of the program around it: the parameters in the page's own address, and the messages to the program.
var platform = (function (purl) {
  'use strict';

  const NAMES = ['dot-x', 'dot-y', 'map-width', 'map-height', 'crop-width', 'crop-height', 'map-file', 'uncertainty-radius'];
  const ENTRY_START = new RegExp('&(?=(?:' + NAMES.join('|') + ')=)');
  const LONGEST_ADDRESS = 16384;
  const NUMBER = /^-?\d{1,7}(\.\d{1,6})?$/;
  const SCHEME = 'quembly:';

  // jQuery would find out whether this event bubbles with an inline handler, which the content security policy forbids.
  // It does bubble in every engine.
  if (!('onfocusin' in window)) window.onfocusin = null;

  // The text behind the first "?". Whoever makes the address escapes nothing, and purl reads plain characters only: so
  // all others are escaped for it, escapes included, and decoding gives back the very text of the address.
  function query(address) {
    const start = address.indexOf('?');
    if (start < 0 || address.length > LONGEST_ADDRESS) return '';
    const plain = address.slice(start + 1).replace(/[^\w=&-]/g, (c) => '%' + c.charCodeAt(0).toString(16).padStart(2, '0'));
    return purl('/?' + plain).search || '';
  }

  // Name to raw value. A value may hold "&" and "=": an entry ends only where one of the known names begins. The first
  // of two entries with one name counts.
  function entries(address) {
    const found = new Map();
    for (const entry of query(address).split(ENTRY_START)) {
      const name = entry.slice(0, entry.indexOf('='));
      if (NAMES.includes(name) && !found.has(name)) found.set(name, decodeURIComponent(entry.slice(name.length + 1)));
    }
    return found;
  }

  function number(text) {
    return text !== undefined && NUMBER.test(text) ? Number(text) : null;
  }

  function unescaped(text) {
    try {
      return decodeURIComponent(text);
    } catch (malformed) {
      return text;
    }
  }

  // A file beside the page: nothing that leads to another folder.
  function isPlainName(name) {
    return name.length > 0 && name.length <= 255 && name !== '.' && name !== '..' && !/[/\\\u0000-\u001f]/.test(name);
  }

  // The browser escapes some characters of an address and leaves others: a "%20" may stand for a blank or for itself.
  function fileNames(text) {
    if (text === undefined) return [];
    return [...new Set([unescaped(text), text])].filter(isPlainName);
  }

  function size(found, name) {
    const width = number(found.get(name + '-width'));
    const height = number(found.get(name + '-height'));
    return width >= 1 && height >= 1 ? { width, height } : null;
  }

  function position(found) {
    const x = number(found.get('dot-x'));
    const y = number(found.get('dot-y'));
    return x === null || y === null ? null : { x, y, radius: number(found.get('uncertainty-radius')) || 0 };
  }

  return {
    // Sizes and positions are null where the address gives none that makes sense; lengths are standard pixels.
    parameters(address) {
      const found = entries(address);
      return { map: size(found, 'map'), crop: size(found, 'crop'), dot: position(found), files: fileNames(found.get('map-file')) };
    },

    // The program sees the navigation and refuses it, so the page stays. Of two in one task only the last would arrive:
    // callers leave time between them. A hundredth of a pixel is two millimetres.
    reportTap(point) {
      window.location.href = SCHEME + 'tap:' + point.x.toFixed(2) + ',' + point.y.toFixed(2);
    },
  };
})(purl);
