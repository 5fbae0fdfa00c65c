
var PLAY_IMAGE = '<img src="/images/play.png" alt="Play"' +
  ' style="margin-left: 5px; margin-right: 5px; vertical-align: middle;" />';
var STOP_IMAGE = '<img src="/images/stop.png"' +
  ' style="margin-left: 5px; margin-right: 5px; vertical-align: middle;" />';

var flashObj = null;
var audioElement = null;
var currentType = null;
var playingMnt = null;
var currentPlayCtrl = null;
var flashPlayed = false;

function quillPlay(uri) {
  // What stands in for Flash in newer browsers puts an element of its own in the movie's place.
  flashObj = document.getElementById("quillPlayer") || flashObj;
  flashObj.jQuillPlay(uri);
  flashPlayed = true;
}

function quillStop() {
  if (flashPlayed) flashObj.jQuillStop();
}

function nativePlays(type) {
  var probe = document.createElement("audio");
  return !!probe.canPlayType && probe.canPlayType(type) !== "";
}

function flashPlays(type) {
  return !!window.swfobject && swfobject.hasFlashPlayerVersion("10") &&
    (type === "audio/mpeg" || type === "audio/aacp");
}

function showPlay(control) {
  control.innerHTML = PLAY_IMAGE;
  control.removeAttribute("aria-label");
}

function showStop(control) {
  control.innerHTML = STOP_IMAGE;
  control.setAttribute("aria-label", "Stop");
}

function blankAudio() {
  if (audioElement) audioElement.src = "about:blank";
}

// What has a meaning in an address, but is a letter of the mount's.
function addressOf(mnt) {
  return encodeURI(mnt).replace(/[?#]/g, encodeURIComponent);
}

function playNative(mnt) {
  if (audioElement) audioElement.src = addressOf(mnt);
  else audioElement = new Audio(addressOf(mnt));
  var started = audioElement.play();
  // Rejected when the stream is left before it sounds, which is no fault.
  if (started && started["catch"]) started["catch"](function () {});
}

function play(mnt, type) {
  if (mnt === playingMnt) {
    stop();
    return;
  }
  if (currentPlayCtrl) {
    quillStop();
    blankAudio();
    showPlay(currentPlayCtrl);
  }
  playingMnt = null;
  currentPlayCtrl = document.getElementById(mnt);
  if (!nativePlays(type) && !flashPlays(type)) return;
  playingMnt = mnt;
  currentType = type;
  if (nativePlays(type)) playNative(mnt);
  else quillPlay("/" + encodeURIComponent(mnt.substring(1)));
  showStop(currentPlayCtrl);
}

function stop() {
  playingMnt = null;
  if (nativePlays(currentType)) blankAudio();
  else if (flashPlays(currentType)) quillStop();
  if (currentPlayCtrl) showPlay(currentPlayCtrl);
  currentPlayCtrl = null;
}

// The text as it stands in a script that is itself an address.
function quoted(text) {
  return encodeURIComponent(JSON.stringify(text));
}

// Links that this browser can play call play(); the others go on leading to a playlist.
function loadPlayLinks() {
  var links = document.getElementsByTagName("a");
  for (var i = 0; i < links.length; i++) {
    var link = links[i];
    var type = link.getAttribute("type");
    if (playingMnt !== null && link.id === playingMnt) {
      currentPlayCtrl = link;
      showStop(link);
    }
    if (type && (nativePlays(type) || flashPlays(type)))
      link.href = "javascript:play(" + quoted(link.id) + "," + quoted(type) + ")";
  }
}
