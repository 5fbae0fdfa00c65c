// Keeps the table of streams as the server has it, by asking for its state and being answered at
// each change. What streams say about themselves are texts here, never markup. The page says in
// playerEnabled whether it has the player.

function elipse(s, count) {
  var characters = Array.from(s);
  return characters.length > count ? $.trim(characters.slice(0, count).join("")) + "..." : s;
}

function counted(count, word) {
  return count + " " + word + (count === 1 ? "" : "s");
}

function listenersOf(source) {
  var most = source.max_nodes ? "/" + source.max_nodes : "";
  return source.nodes + most + " (" + source.unique_nodes + " unique)";
}

function setText(element, text) {
  if (element.text() !== text) element.text(text);
}

function newPlayLink(source) {
  var codecs = source.sub_type ? '; codecs="' + source.sub_type.toLowerCase() + '"' : "";
  return $("<a>")
    .attr({
      href: "/sbin/tunein.pls?mnt=" + encodeURIComponent(source.mount),
      id: source.mount,
      type: source.content_type + codecs
    })
    .append($("<img>").attr({ src: "/images/play.png", width: 20, height: 20, alt: "Play" }));
}

function newRow(source) {
  var name = $("<a>").attr({ "class": "streamName", href: "/view/" + source.id + "/" });
  return $("<tr>")
    .attr({ "class": "tableViewCol", id: "internalStation" + source.id })
    .append(
      $("<td>")
        .attr({ "class": "tableViewIndex", colspan: 2, style: "width: 10px;" })
        .append(newPlayLink(source), $("<span>").addClass("stationDetails").append(name)),
      $("<td>").addClass("metaSong"),
      $("<td>").addClass("genreBitrate"),
      $("<td>").addClass("receiversCount")
    );
}

// The row of a source, somewhere behind the row of the one before it. An id may have come to
// another mount meanwhile.
function rowOf(source, previous) {
  var row = $("#internalStation" + source.id);
  if (row.find("a").first().attr("id") !== source.mount) {
    row.remove();
    row = newRow(source);
  }
  return row.index() > previous.index() ? row : row.insertAfter(previous);
}

function showSources(sources) {
  var previous = $("#tableViewNone");
  $.each(sources, function (_, source) {
    var row = rowOf(source, previous);
    setText(row.find(".streamName"), elipse(source.name, 90));
    setText(row.find(".metaSong"), elipse(source.meta_song, 90));
    setText(row.find(".genreBitrate"), elipse(source.genre, 30));
    setText(row.find(".receiversCount"), listenersOf(source));
    previous = row;
  });
}

function removeOtherRows(sources) {
  var rowNum = 0;
  $("tr.tableViewCol").each(function () {
    if (this.id === "tableViewNone") return;
    if (rowNum < sources.length && this.id === "internalStation" + sources[rowNum].id) rowNum++;
    else $(this).remove();
  });
}

function showStats(stats) {
  var sources = stats.sources || [];
  setText($("#activeSources"), counted(stats.active_sources, "active source"));
  setText($("#totalNodes"), counted(stats.total_nodes, "listener"));
  $("#tableViewNone").toggle(stats.active_sources === 0);
  $(".tableViewHead").toggle(stats.active_sources > 0);
  showSources(sources);
  if (playerEnabled) loadPlayLinks();
  removeOtherRows(sources);
}

function loadStats() {
  $.getJSON("/status.json?wfc=y", function (stats) {
    showStats(stats);
    setTimeout(loadStats, 50);
  }).fail(function () {
    setTimeout(loadStats, 1000);
  });
}

// Without the library the table stays as it was sent.
if (window.jQuery) $(document).ready(loadStats);
