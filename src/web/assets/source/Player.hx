import flash.events.AsyncErrorEvent;
import flash.events.IOErrorEvent;
import flash.events.NetStatusEvent;
import flash.events.SecurityErrorEvent;
import flash.external.ExternalInterface;
import flash.net.NetConnection;
import flash.net.NetStream;

// The movie that plays streams for browsers which cannot do so themselves. It draws nothing; the page
// calls it, one stream at a time.
class Player {
    // The server wraps a stream for Flash when it is asked to.
    static inline var AS_FLV = "?flv=1";
    static inline var BUFFER_SECONDS = 1;

    static var connection: NetConnection;
    static var stream: NetStream;

    static function main() {
        connection = new NetConnection();
        connection.addEventListener(NetStatusEvent.NET_STATUS, ignore);
        connection.addEventListener(SecurityErrorEvent.SECURITY_ERROR, ignore);
        connection.connect(null);
        ExternalInterface.addCallback("jQuillPlay", play);
        ExternalInterface.addCallback("jQuillStop", stop);
    }

    static function play(uri: String) {
        stop();
        if (!isPath(uri)) return;
        stream = new NetStream(connection);
        stream.client = {onMetaData: ignore};
        stream.bufferTime = BUFFER_SECONDS;
        stream.addEventListener(NetStatusEvent.NET_STATUS, ignore);
        stream.addEventListener(IOErrorEvent.IO_ERROR, ignore);
        stream.addEventListener(AsyncErrorEvent.ASYNC_ERROR, ignore);
        stream.play(uri + AS_FLV);
    }

    static function stop() {
        if (stream == null) return;
        stream.pause(); // closing alone is not silence in every player that runs this
        stream.close();
        stream = null;
    }

    // Streams of this server alone: "//host/", and what browsers take for it, would be another.
    static function isPath(uri: String): Bool {
        return uri != null && ~/^\/([^\/\\\s]|$)/.match(uri);
    }

    // A stream that ends or fails is silent; the page is not told, and an event without a listener
    // would be shown to the visitor as an error.
    static function ignore(_: Dynamic) {}
}
